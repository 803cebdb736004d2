// Answers as the service formats them, and refusals: an operation throws one where the service would refuse.
#pragma once

#include <exception>
#include <string>

#include "vaultsim/call.h"
#include "vaultsim/json.h"

namespace vaultsim {

Answer JsonAnswer(int status, const Json& body);
Answer TextAnswer(int status, const std::string& text);

// {"error":{"code":..,"message":..}}, with "innererror" unless `inner` is empty: the vault's format.
Answer ErrorAnswer(int status, const std::string& code, const std::string& message, const std::string& inner = "");
// {"error":..,"error_description":..}: the identity services' format.
Answer OauthErrorAnswer(int status, const std::string& error, const std::string& description);
// 403 with this inner code, such as "ForbiddenByFirewall". Throws std::invalid_argument for an unknown one.
Answer ForbiddenAnswer(const std::string& inner);
// What the vault sends with this status if nothing better is known.
Answer DefaultErrorAnswer(int status);

class Refusal : public std::exception {
  public:
    explicit Refusal(Answer answer) : answer_(std::move(answer)) {}
    const Answer& answer() const { return answer_; }
    const char* what() const noexcept override { return answer_.body.c_str(); }

  private:
    Answer answer_;
};

Refusal BadParameter(const std::string& message);
Refusal Forbidden(const std::string& message, const std::string& inner = "");
Refusal NotFound(const std::string& code, const std::string& message);
Refusal Conflict(const std::string& message, const std::string& inner = "");

}  // namespace vaultsim
