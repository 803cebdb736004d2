// A simulator inside the test program, reached over its sockets like by any client.
#pragma once

#include <gtest/gtest.h>
#include <httplib.h>

#include <string>

#include "vaultsim/base64url.h"
#include "vaultsim/simulator.h"

using vaultsim::FromBase64;
using vaultsim::Json;
using vaultsim::ToBase64;

struct Reply {
    int status = 0;  // 0: no answer
    std::string body;
    httplib::Headers headers;
    Json json() const { return Json::parse(body, nullptr, false); }
    // "200", "404 KeyNotFound", "403 Forbidden KeyDisabled": the status and the error's codes.
    std::string Outcome() const;
};

class SimTest : public testing::Test {
  protected:
    void SetUp() override { Sim().Reset(); }

    static vaultsim::Simulator& Sim();
    static int Port(const char* listener) { return Sim().FindEndpoint(listener)->port(); }

    // A call on the control port; fails the test unless the answer is 200.
    static Json Control(const std::string& method, const std::string& path, const Json& body = Json::object());
    // Seeds a key, or a certificate, of the vault.
    static void AddKey(const Json& key) { Control("POST", "/vaults/contoso-keys/keys", key); }
    static void AddCertificate(const Json& made) { Control("POST", "/vaults/contoso-keys/certificates", made); }

    // A client that trusts the simulator's authority and finds the host on loopback.
    static std::unique_ptr<httplib::SSLClient> Client(const std::string& host);
    static Reply Send(httplib::ClientImpl& client, const std::string& method, const std::string& target,
                      const httplib::Headers& headers, const std::string& body);

    // A call on a vault with a good token. `path` without a query gets the interface's version. `body` null: no entity.
    static Reply Vault(const std::string& method, const std::string& path, const Json& body = nullptr,
                       const std::string& vault = "contoso-keys");
    static Reply Get(const std::string& path) { return Vault("GET", path); }
    static std::string Token();
    static Reply SignIn(const std::string& body, const std::string& path = "");
    static std::string SignInForm();
    // GET on one of the identity services.
    static Reply Identity(const char* listener, const std::string& target, const httplib::Headers& headers);
};

// A sample of what the live service sent: a file of the folder that these tests share, or of their own.
Json Sample(const std::string& name);
// The members of an object, in order, with the kinds of their values: to compare shapes.
std::string Shape(const Json& json);
