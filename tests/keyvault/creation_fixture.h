// What the stories about new keys share: answers in a row, requests and log lines as words.
#pragma once

#include <sstream>

#include "keyvault/key_creation.h"
#include "tests/keyvault/vault_fixture.h"

inline std::string Kty(const OwnKey& key)
{
    return OrNone(key.kty);
}

class CreationTest : public VaultTest {
  protected:
    // The bodies of a creation's first request and of the one after the fall-back.
    struct RequestBodies {
        std::string hardware;
        std::string software;
    };

    void SetUp() override
    {
        VaultTest::SetUp();
        call->certificateMode = certificateMode();
    }
    virtual DWORD certificateMode() const { return 0; }

    int Create(const std::string& name, const std::string& algId, LONG bits, KVKey* key)
    {
        return KVCCreateKey(call.get(), Wide(name).c_str(), Wide(algId).c_str(), bits, key, 0);
    }

    // Queues one answer after the other for the requests whose target has `path`: statuses, each with the body
    // "refused", or with another one for a status that ends in "k".
    void AnswerAll(const std::string& path, const std::string& statuses, const nlohmann::json& known = nullptr)
    {
        std::istringstream stream(statuses);
        for (std::string status; stream >> status;)
            Answer(path, std::stoi(status), status.back() == 'k' ? known : nlohmann::json("refused"));
    }

    // All requests to the vault, a word each: creations in "hardware" and in "software" (the bodies of `sent`), "merge"
    // and "read"; anything else in full.
    std::string Requests(const RequestBodies& sent)
    {
        const std::string collection = certificateMode() ? "/certificates" : "/keys";
        std::string words;
        for (const nlohmann::json& request : ClientTest::Requests("?api-version=")) {
            const std::string line = request.value("method", "") + " " + request.value("target", "");
            const std::string body = request.value("body", "");
            if (line == "POST " + collection + "/mykey/create?api-version=7.0" && body == sent.hardware)
                words += " hardware";
            else if (line == "POST " + collection + "/mykey/create?api-version=7.0" && body == sent.software)
                words += " software";
            else if (line == "POST " + collection + "/mykey/pending/merge?api-version=7.0" && IsMergeBody(body))
                words += " merge";
            else if (line == "GET /keys/mykey?api-version=2016-10-01" && body.empty())
                words += " read";
            else
                words += " [" + line + " " + body + "]";
        }
        return words.substr(words.empty() ? 0 : 1);
    }
    static bool IsMergeBody(const std::string& body)
    {
        const std::string head = "{\"x5c\": [\"";
        const std::string tail = "\"]}";
        if (body.size() < head.size() + tail.size() || body.rfind(head, 0) != 0)
            return false;
        return body.find_first_not_of("ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/=",
                                      head.size()) == body.size() - tail.size() &&
               body.substr(body.size() - tail.size()) == tail;
    }

    // Lines of a creation and of a merge, at all levels.
    Strings Trace() const
    {
        Strings trace;
        for (const std::string& line : root.LogLines()) {
            if (line.find("Create") != std::string::npos || line.find("KVCImportCertificate") == 0)
                trace.push_back(line);
        }
        return trace;
    }
    void Fresh()
    {
        sim.Reset();
        clock.ClearWaits();
        root.ClearLog();
    }
    nlohmann::json StateOf(const char* vault = Simulator::kVault)
    {
        return sim.Control("GET", std::string("/vaults/") + vault);
    }
};

// The log lines of a row: words that stand for a message and its level, each with the status behind a colon if the line
// has one.
struct Message {
    const char* word;
    const char* text;
    int level;
};
inline Strings Lines(const std::string& words, const std::vector<Message>& messages)
{
    Strings lines;
    std::istringstream stream(words);
    for (std::string word; stream >> word;) {
        for (const Message& message : messages) {
            const size_t colon = word.find(':');
            if (message.word != word.substr(0, colon))
                continue;
            std::ostringstream line;
            line << message.text;
            if (colon != std::string::npos)
                line << " Error 0x" << std::hex << std::stoi(word.substr(colon + 1)) << std::dec;
            line << " " << message.level;
            lines.push_back(line.str());
        }
    }
    return lines;
}

inline Waits FirstWaits(size_t count)
{
    const Waits waits = {1000, 2000, 4000, 8000, 16000};
    return Waits(waits.begin(), waits.begin() + static_cast<std::ptrdiff_t>(count));
}
