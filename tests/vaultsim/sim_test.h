// The simulator as its clients meet it: these tests call its sockets.
#pragma once

#include <gtest/gtest.h>

#include "tests/common/http_call.h"
#include "tests/common/service_sample.h"
#include "tests/common/simulator.h"
#include "vaultsim/base64url.h"

using vaultsim::FromBase64;
using vaultsim::ToBase64;

struct Reply : HttpReply {
    json Json() const { return json::parse(body, nullptr, false); }
    // "200", "404 KeyNotFound", "403 Forbidden KeyDisabled": the status and the error's codes.
    std::string Outcome() const;
    std::string Field(const std::string& name) const;  // of the head; "" if it isn't there
};

class SimTest : public testing::Test {
  protected:
    void SetUp() override { sim.Reset(); }

    // Seed the vault with a key or with certificates. The texts are JSON.
    void AddKey(const std::string& key) { sim.AddKey(Simulator::kVault, json::parse(key)); }
    void AddCertificate(const std::string& made) { Control("POST", "/vaults/contoso-keys/certificates", made); }
    json Control(const std::string& method, const std::string& path, const std::string& body = "null")
    {
        return sim.Control(method, path, json::parse(body));
    }

    static Reply Send(const HttpCall& call) { return {Perform(call)}; }
    // A call on a vault with a good token. A `path` without a query gets the interface's version.
    Reply Vault(const std::string& method, const std::string& path, const std::string& body = "",
                const std::string& vault = Simulator::kVault);
    Reply Get(const std::string& path) { return Vault("GET", path); }
    static Reply SignIn(const std::string& body, const std::string& path = "");
    static std::string SignInForm();

    Simulator& sim = Simulator::Get();
};

json Sample(const std::string& name);
// The members of an object in order, with the kinds of their values: to compare shapes.
std::string Shape(const std::string& text);
