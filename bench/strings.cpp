// Base64 and key names against a plain copy of the same bytes, and Base64 against OpenSSL's.
#include <benchmark/benchmark.h>
#include <openssl/evp.h>

#include <cstring>
#include <vector>

#include "keyvault/kvkey.h"
#include "support/base64.h"

namespace {

constexpr size_t kBytes = 2048;  // the limit of a decoded text; no signature or certificate is longer

std::vector<BYTE> Pattern()
{
    std::vector<BYTE> bytes(kBytes);
    for (size_t i = 0; i < bytes.size(); ++i)
        bytes[i] = static_cast<BYTE>(i * 37);
    return bytes;
}

void Copy(benchmark::State& state)
{
    const std::vector<BYTE> bytes = Pattern();
    std::vector<BYTE> room(kBytes);
    for (auto _ : state) {
        memcpy(room.data(), bytes.data(), kBytes);
        benchmark::DoNotOptimize(room.data());
        benchmark::ClobberMemory();
    }
}
BENCHMARK(Copy);

void Base64Encode(benchmark::State& state)
{
    const std::vector<BYTE> bytes = Pattern();
    for (auto _ : state)
        free(KVCKelvaro_ToBase64(bytes.data(), kBytes));
}
BENCHMARK(Base64Encode);

void PlatformEncode(benchmark::State& state)
{
    const std::vector<BYTE> bytes = Pattern();
    std::vector<WCHAR> text(kBytes * 2);
    for (auto _ : state) {
        DWORD size = static_cast<DWORD>(text.size());
        if (!CryptBinaryToStringW(bytes.data(), kBytes, CRYPT_STRING_BASE64 | CRYPT_STRING_NOCRLF, text.data(), &size))
            state.SkipWithError("not encoded");
        benchmark::DoNotOptimize(text.data());
    }
}
BENCHMARK(PlatformEncode);

void Base64EncodeOpenSsl(benchmark::State& state)
{
    const std::vector<BYTE> bytes = Pattern();
    std::vector<BYTE> text(kBytes * 2);
    for (auto _ : state) {
        EVP_EncodeBlock(text.data(), bytes.data(), kBytes);
        benchmark::DoNotOptimize(text.data());
    }
}
BENCHMARK(Base64EncodeOpenSsl);

void Base64Decode(benchmark::State& state)
{
    const std::vector<BYTE> bytes = Pattern();
    WCHAR* text = KVCKelvaro_ToBase64(bytes.data(), kBytes);
    std::vector<BYTE> room(kBytes + 4);
    for (auto _ : state) {
        DWORD size = static_cast<DWORD>(room.size());
        if (!BldBinFromBase64(text, room.data(), &size) || size != kBytes)
            state.SkipWithError("not decoded");
    }
    free(text);
}
BENCHMARK(Base64Decode);

void PlatformDecode(benchmark::State& state)
{
    const std::vector<BYTE> bytes = Pattern();
    WCHAR* text = KVCKelvaro_ToBase64(bytes.data(), kBytes);
    const DWORD length = static_cast<DWORD>(std::basic_string_view<WCHAR>(text).size());
    std::vector<BYTE> room(kBytes + 4);
    for (auto _ : state) {
        DWORD size = static_cast<DWORD>(room.size());
        if (!CryptStringToBinaryW(text, length, CRYPT_STRING_BASE64_ANY, room.data(), &size, nullptr, nullptr))
            state.SkipWithError("not decoded");
        benchmark::DoNotOptimize(room.data());
    }
    free(text);
}
BENCHMARK(PlatformDecode);

void Base64DecodeOpenSsl(benchmark::State& state)
{
    const std::vector<BYTE> bytes = Pattern();
    std::vector<BYTE> text(kBytes * 2);
    const int length = EVP_EncodeBlock(text.data(), bytes.data(), kBytes);
    std::vector<BYTE> room(kBytes + 4);
    for (auto _ : state) {
        EVP_DecodeBlock(room.data(), text.data(), length);
        benchmark::DoNotOptimize(room.data());
    }
}
BENCHMARK(Base64DecodeOpenSsl);

constexpr WCHAR kPlainName[] = TEXT("a-plain-name-of-forty-two-characters-12345");
constexpr WCHAR kCodedName[] = TEXT("le-Web server (\u00e4\u00f6\u00fc)_{1234-5678-90ab-cde}");

template <size_t length>
void CopyName(benchmark::State& state, const WCHAR (&name)[length])
{
    WCHAR room[length];
    for (auto _ : state) {
        memcpy(room, name, sizeof(name));
        benchmark::DoNotOptimize(room);
        benchmark::ClobberMemory();
    }
}
BENCHMARK_CAPTURE(CopyName, plain, kPlainName);
BENCHMARK_CAPTURE(CopyName, coded, kCodedName);

void EncodeName(benchmark::State& state, const WCHAR* name)
{
    for (auto _ : state) {
        WCHAR encoded[kEncodedNameChars] = {};
        int coded = 0;
        if (!KVCConvertClearKeyNameToEncoded(name, encoded, &coded))
            state.SkipWithError("not encoded");
        benchmark::DoNotOptimize(encoded);
    }
}
BENCHMARK_CAPTURE(EncodeName, plain, kPlainName);
BENCHMARK_CAPTURE(EncodeName, coded, kCodedName);

}  // namespace

BENCHMARK_MAIN();
