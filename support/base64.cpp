#include "support/base64.h"

#include <string.h>

#include "support/bldstr.h"
#include "support/fail.h"
#include "support/guards.h"
#include "support/text.h"

namespace {

void ToStandardAlphabet(WCHAR* text, size_t length)
{
    // No branches, so that the compiler can vectorize it.
    for (size_t i = 0; i < length; i++) {
        const WCHAR ch = text[i] == '-' ? WCHAR{'+'} : text[i];
        text[i] = ch == '_' ? WCHAR{'/'} : ch;
    }
}

// A copy of a text in the standard alphabet, padded. Texts over kBase64TextLimit characters are refused.
class NormalisedText : private NonCopyable {
  public:
    explicit NormalisedText(const WCHAR* text)
    {
        const TextView view = View(text);
        if (!text || view.size() > kBase64TextLimit)
            return;
        length_ = view.copy(room_, view.size());
        ToStandardAlphabet(room_, length_);
        while (length_ % 4)
            room_[length_++] = '=';
        room_[length_] = 0;
        usable_ = true;
    }
    // The text may be a secret.
    ~NormalisedText() { Wipe(room_, length_ * sizeof(WCHAR)); }

    bool Decode(BYTE* bytes, DWORD* cb) const
    {
        const DWORD length = static_cast<DWORD>(length_);
        return usable_ && CryptStringToBinaryW(room_, length, CRYPT_STRING_BASE64_ANY, bytes, cb, nullptr, nullptr);
    }

  private:
    WCHAR room_[4096];
    size_t length_ = 0;
    bool usable_ = false;
};

// Wiped before it is freed: it may hold the plaintext of a decryption.
class DecodedBlock : private NonCopyable {
  public:
    explicit DecodedBlock(size_t size) : bytes_(static_cast<BYTE*>(calloc(1, size))), size_(size) {}
    ~DecodedBlock()
    {
        Wipe(bytes_, size_);
        free(bytes_);
    }

    BYTE* bytes() const { return bytes_; }

  private:
    BYTE* bytes_;
    size_t size_;
};

}  // namespace

WCHAR* KVCKelvaro_ToBase64(const BYTE* bytes, DWORD size)
{
    constexpr DWORD kFlags = CRYPT_STRING_BASE64 | CRYPT_STRING_NOCRLF;
    LogLine(TEXT("KVCKelvaro_ToBase64"), LOG_DETAIL_LEVEL);
    DWORD cch = 0;
    if (!CryptBinaryToStringW(bytes, size, kFlags, nullptr, &cch))
        return Fail(nullptr, TEXT("KVCKelvaro_ToBase64 CryptBinaryToStringW 1 Failed"));
    SecretTextPtr text(static_cast<WCHAR*>(calloc(cch, sizeof(WCHAR))));
    if (!text)
        return Fail(nullptr, TEXT("KVCKelvaro_ToBase64 Failed to allocate memory"));
    if (!CryptBinaryToStringW(bytes, size, kFlags, text.get(), &cch))
        return Fail(nullptr, TEXT("KVCKelvaro_ToBase64 CryptBinaryToStringW 2 Failed"));
    return text.release();
}

int KVCKelvaro_FromBase64(const WCHAR* text, BYTE** ppOut, DWORD* pcbOut, int allocate)
{
    LogLine(TEXT("KVCKelvaro_FromBase64"), LOG_DETAIL_LEVEL);
    const NormalisedText normalised(text);
    DWORD size = 0;
    if (!normalised.Decode(nullptr, &size)) {
        LogLine(TEXT("KVCKelvaro_FromBase64 CryptStringToBinaryW 1 Failed"), LOG_DETAIL_LEVEL);
        return 0;
    }
    // At least one byte: empty text is valid, and calloc(0) may return NULL.
    const DecodedBlock decoded(size ? size : 1);
    if (!decoded.bytes() || !normalised.Decode(decoded.bytes(), &size)) {
        LogLine(TEXT("KVCKelvaro_FromBase64 CryptStringToBinaryW 2 Failed"), LOG_DETAIL_LEVEL);
        return 0;
    }
    if (*ppOut && size > *pcbOut) {
        *pcbOut = size;
        return 0;
    }
    *pcbOut = size;
    if (!*ppOut && allocate)
        *ppOut = static_cast<BYTE*>(calloc(1, size_t{size} + 2));
    if (*ppOut)
        memcpy(*ppOut, decoded.bytes(), size);
    return 1;
}

int Kelvaro_FromBase64(const WCHAR* text, BYTE* buffer, DWORD* pcbOut)
{
    LogLine(TEXT("Kelvaro_FromBase64"), LOG_DETAIL_LEVEL);
    const NormalisedText normalised(text);
    if (!normalised.Decode(buffer, pcbOut))
        return Fail(0, TEXT("Kelvaro_FromBase64 CryptStringToBinary Failed"));
    return 1;
}

int BldBinFromBase64(const WCHAR* text, BYTE* buffer, DWORD* pcbOut)
{
    LogLine(TEXT("BldBinFromBase64"), LOG_DETAIL_LEVEL);
    const BldStrPtr str(BldStrNewStr(text));
    if (!str)
        return 0;
    ToStandardAlphabet(str->cStr, str->length);
    while (str->length % 4) {
        if (!BldStrCat(str.get(), TEXT("=")))
            return 0;
    }
    return CryptStringToBinaryW(str->cStr, str->length, CRYPT_STRING_BASE64_ANY, buffer, pcbOut, nullptr, nullptr);
}
