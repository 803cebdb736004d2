// The exception for every command that fails. It carries the program's exit code.
#pragma once

#include <cerrno>
#include <memory>
#include <nlohmann/json_fwd.hpp>
#include <optional>
#include <stdexcept>
#include <string>
#include <system_error>

#include "platform/platform.h"

namespace kelvaroctl {

enum class ExitCode : int {
    Ok = 0,
    Negative = 1,
    Usage = 2,
    Configuration = 3,
    SignIn = 4,
    NotFound = 5,
    Refused = 6,
    Internal = 7,
};

// What they mean, by number.
constexpr const char* kExitMeanings[] = {
    "done",
    "the answer is no: a bad signature, a deletion not confirmed",
    "the command line, or a file that it names, is not valid",
    "the settings, the registry or the module cannot be used",
    "sign-in was refused",
    "the key or certificate was not found",
    "the vault or the network refused",
    "internal error",
};

class Failure : public std::runtime_error {
  public:
    // code: a fixed word, or the name of the status. message: a sentence without the full stop.
    Failure(ExitCode exit, std::string code, const std::string& message)
        : std::runtime_error(message), exit_(exit), code_(std::move(code))
    {
    }

    ExitCode exit() const { return exit_; }
    const std::string& code() const { return code_; }

    // Set if the module returned an error: its status and the operation.
    std::optional<SECURITY_STATUS> status;
    std::string operation;
    // Results from before the failure, if any: members of the JSON answer beside "error", and text.
    std::shared_ptr<nlohmann::ordered_json> partial;
    std::string partialText;

  private:
    ExitCode exit_;
    std::string code_;
};

inline Failure UsageFailure(const std::string& message)
{
    return Failure(ExitCode::Usage, "usage", message);
}

inline Failure ConfigurationFailure(const std::string& message)
{
    return Failure(ExitCode::Configuration, "configuration", message);
}

inline Failure InternalFailure(const std::string& message)
{
    return Failure(ExitCode::Internal, "internal", message);
}

// What `read` returns; nullopt if it fails.
template <typename Read>
auto IfPossible(Read read) -> std::optional<decltype(read())>
{
    try {
        return read();
    } catch (const Failure&) {
        return std::nullopt;
    }
}

// "cannot ATTEMPT NAME: reason", with the reason from errno.
inline Failure FileFailure(const std::string& attempt, const std::string& name)
{
    const int reason = errno;
    return UsageFailure("cannot " + attempt + " " + name +
                        (reason ? ": " + std::generic_category().message(reason) : std::string()));
}

}  // namespace kelvaroctl
