// The objects behind HINTERNET: a session, its connections, their requests.
#pragma once

#include <string>

#include "platform/linux/ref_counted.h"
#include "platform/linux/winhttp_exchange.h"

namespace winhttp {

enum class Kind : uint32_t {
    closed = 0,
    session = 0x57485331,
    connection = 0x57485332,
    request = 0x57485333,
};

// A child holds a reference to its parent, so the parent may be closed first.
struct Handle : RefCounted {
    Handle(Kind kindOfHandle, Handle* owner) : kind(kindOfHandle), parent(NewReference(owner)) {}

    Kind kind;
    const ObjectRef<Handle> parent;
};

struct Session : Handle {
    static constexpr Kind kKind = Kind::session;
    Session() : Handle(kKind, nullptr) {}

    std::string agent;
    Timeouts timeouts;
};

struct Connection : Handle {
    static constexpr Kind kKind = Kind::connection;
    explicit Connection(Session* owner) : Handle(kKind, owner) {}

    std::string host;
    INTERNET_PORT port = 0;
};

struct Request : Handle {
    static constexpr Kind kKind = Kind::request;
    explicit Request(Connection* owner) : Handle(kKind, owner) {}

    const Session& session() const { return *static_cast<const Session*>(parent->parent.get()); }

    // Both return 0 or a platform error code. Receive follows redirects.
    LONG Send();
    LONG Receive();

    std::string verb;
    Target origin;
    Timeouts timeouts;
    DWORD ignoredCertificateErrors = 0;  // SECURITY_FLAG_IGNORE_...
    SecretString callerLines;
    const char* body = nullptr;
    size_t bodySize = 0;
    bool sent = false;
    bool received = false;
    Exchange exchange;

  private:
    LONG SendTo(const Target& target);
    bool NextTarget(Target* next) const;

    Target current_;
    std::string currentVerb_;
    bool withBody_ = false;
};

}  // namespace winhttp
