// What the child process does: calls through the provider. A failure is reported as any command's is.
#include "kelvaroctl/doctor/doctor.h"
#include "kelvaroctl/doctor/signature_check.h"
#include "kelvaroctl/hash.h"

namespace kelvaroctl {

namespace {

Answer ShowModule(const Tool& tool)
{
    const auto provider = tool.OpenProvider();
    return {{{"module", provider->place()}, {"version", provider->Version()}}};
}

// Signs `count` times.
Answer SignWith(const Key& key, int count)
{
    const Bytes blob = key.PublicBlob();
    const SignatureAlgorithm& algorithm = AlgorithmFor(ParsePublicBlob(blob));
    Answer answer = {{{"algorithm", algorithm.name}, {"ms", Json::array()}, {"verified", true}}};
    for (int at = 0; at < count; ++at) {
        const Bytes digest = Digest(algorithm.hash, algorithm.digestSize, Bytes(1, static_cast<BYTE>(at)));
        const ULONGLONG start = GetTickCount64();
        const Bytes signature = key.Sign(Padding(algorithm), digest);
        answer.object["ms"].push_back(GetTickCount64() - start);
        if (!IsSignatureOf(blob, algorithm, digest, signature))
            answer.object["verified"] = false;
    }
    return answer;
}

Answer Write(const Tool& tool, const std::string& name)
{
    const auto provider = tool.OpenProvider();
    Key key = Key::Create(*provider, name, "ECDSA_P256", false);
    key.Finalize();
    try {
        Answer answer = SignWith(key, 1);
        key.Delete();
        return answer;
    } catch (const Failure&) {
        key.Delete();
        throw;
    }
}

}  // namespace

Answer RunStep(const Tool& tool)
{
    if (tool.step == "module")
        return ShowModule(tool);
    if (tool.step == "write")
        return Write(tool, tool.key);
    const auto provider = tool.OpenProvider();
    return SignWith(Key(*provider, tool.key), tool.step == "speed" ? 5 : 1);
}

}  // namespace kelvaroctl
