// The tool as an administrator uses it, on a fresh machine with the simulator as its vault.
#pragma once

#include <gtest/gtest.h>

#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "kelvaroctl/public_key.h"
#include "tests/common/client_settings.h"
#include "tests/common/simulator.h"
#include "tests/common/test_root.h"
#include "tests/kelvaroctl/process.h"

class CtlTest : public testing::Test {
  protected:
    // Settings that sign in to the vault, in both hives.
    void SetUp() override
    {
        sim.Reset();
        WriteClientSettings(root);
    }

    // Runs the tool with the built module.
    Ran Ctl(const std::vector<std::string>& arguments, const std::string& input = "")
    {
        return RunToolHere(WithModule(arguments), input);
    }
    // The same with --json: the object on standard output. Fails the test when it ends with another exit code.
    nlohmann::json CtlJson(std::vector<std::string> arguments, int exit = 0);
    // Standard output of a run that must succeed.
    std::string Out(const std::vector<std::string>& arguments)
    {
        const Ran ran = Ctl(arguments);
        EXPECT_EQ(0, ran.exit) << ran.err;
        return ran.out;
    }

    // Runs each line of a table, "EXIT ARGUMENT... | WORDS .. WORDS": the words must be in the output, in this order;
    // those after "!" must not be in it. An argument: @NAME is a file of the test's folder, 'a b' has blanks, x*40 is
    // forty x. "! PATH STATUS" or "! PATH ACTION" is a lasting fault of the simulator for the next line alone, "! JSON"
    // any other, "< TEXT" its standard input.
    void Run(const std::string& table);
    // The lines that tests/data/command_lines.txt has under this test's name, or one part of them.
    void RunSection(int part = 1);

    // The arguments of one of those lines.
    std::vector<std::string> Split(const std::string& line) const;

    std::string File(const std::string& name) const { return root.directory() + "/" + name; }
    void WriteFile(const std::string& name, const std::string& content) const;
    std::string ReadFile(const std::string& path) const;
    // The machine's settings as the tool shows them, to compare before and after.
    nlohmann::json Settings() { return CtlJson({"config", "show"}); }
    // "RSA", or a curve.
    void AddKey(const std::string& name, const std::string& kind,
                const nlohmann::json& more = nlohmann::json::object());

    // The SubjectPublicKeyInfo of a key of the vault, from the simulator.
    kelvaroctl::Bytes PublicDer(const std::string& name);
    std::string Fingerprint(const std::string& name);  // SHA-256 of that, hexadecimal

    static std::vector<std::string> WithModule(std::vector<std::string> arguments)
    {
        arguments.insert(arguments.begin(), {"--module", KELVARO_MODULE_PATH});
        return arguments;
    }

    TestRoot root;
    Simulator& sim = Simulator::Get();

  private:
    void RunLine(const std::string& line, const std::string& input);
};
