// A simulator inside the test program, reached over its sockets like by any client.
#pragma once

#include <gtest/gtest.h>
#include <httplib.h>

#include <string>

#include "vaultsim/simulator.h"

using vaultsim::Json;

struct Reply {
    int status = 0;  // 0: no answer
    std::string body;
    httplib::Headers headers;
    Json json() const { return Json::parse(body, nullptr, false); }
    std::string Code() const { return json()["error"].value("code", ""); }
    std::string Inner() const { return json()["error"].value("/innererror/code"_json_pointer, ""); }
};

class SimTest : public testing::Test {
  protected:
    void SetUp() override { Sim().Reset(); }

    static vaultsim::Simulator& Sim();
    static int Port(const char* listener) { return Sim().FindEndpoint(listener)->port(); }

    // A call on the control port; fails the test unless the answer is 200.
    static Json Control(const std::string& method, const std::string& path, const Json& body = Json::object());
    static std::string LastFault();  // of the journal

    // A client that trusts the simulator's authority and finds the host on loopback.
    static std::unique_ptr<httplib::SSLClient> Client(const std::string& host);
    static Reply Send(httplib::ClientImpl& client, const std::string& method, const std::string& target,
                      const httplib::Headers& headers, const std::string& body);

    // A call on a vault with a good token. `body` null: no entity.
    static Reply Vault(const std::string& method, const std::string& target, const Json& body = nullptr,
                       const std::string& vault = "contoso-keys");
    static std::string Token();
    static Reply SignIn(const std::string& body, const std::string& path = "");
    static std::string SignInForm();
    // GET on one of the identity services.
    static Reply Identity(const char* listener, const std::string& target, const httplib::Headers& headers);

    // Sends bytes to a plain listener and reads to the end.
    static std::string Raw(int port, const std::string& bytes);
};

// A sample of what the live service sent.
Json Sample(const std::string& path);
// The members of an object, in order, with the kinds of their values: to compare shapes.
std::string Shape(const Json& json);
