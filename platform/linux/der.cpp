#include "platform/linux/der.h"

#include "platform/linux/win_constants.h"

namespace {

constexpr BYTE kHighTagNumber = 0x1F;
constexpr BYTE kLongLength = 0x80;
constexpr size_t kMaxLengthBytes = 4;

BYTE ByteAt(std::string_view bytes, size_t index)
{
    return static_cast<BYTE>(bytes[index]);
}

// Reads tag and length. *headSize: their size in bytes.
LONG ReadHead(std::string_view bytes, size_t* headSize, size_t* contentSize)
{
    if (bytes.size() < 2)
        return CRYPT_E_ASN1_EOD;
    if ((ByteAt(bytes, 0) & kHighTagNumber) == kHighTagNumber)
        return CRYPT_E_ASN1_BADTAG;
    const BYTE first = ByteAt(bytes, 1);
    const size_t lengthBytes = first < kLongLength ? 0 : first - kLongLength;
    *headSize = 2 + lengthBytes;
    *contentSize = first < kLongLength ? first : 0;
    if (first == kLongLength)
        return CRYPT_E_ASN1_CORRUPT;
    if (lengthBytes > kMaxLengthBytes)
        return CRYPT_E_ASN1_LARGE;
    if (bytes.size() < *headSize)
        return CRYPT_E_ASN1_EOD;
    for (size_t i = 0; i < lengthBytes; i++)
        *contentSize = (*contentSize << 8) | ByteAt(bytes, 2 + i);
    return *contentSize <= bytes.size() - *headSize ? ERROR_SUCCESS : CRYPT_E_ASN1_EOD;
}

}  // namespace

bool DerReader::AtEnd() const
{
    return *error_ != ERROR_SUCCESS || rest_.empty();
}

BYTE DerReader::NextTag() const
{
    return AtEnd() ? BYTE{0} : ByteAt(rest_, 0);
}

DerElement DerReader::TakeAny()
{
    DerElement element;
    size_t headSize = 0;
    size_t contentSize = 0;
    if (*error_ == ERROR_SUCCESS)
        *error_ = ReadHead(rest_, &headSize, &contentSize);
    if (*error_ != ERROR_SUCCESS)
        return element;
    element.tag = ByteAt(rest_, 0);
    element.content = rest_.substr(headSize, contentSize);
    element.whole = rest_.substr(0, headSize + contentSize);
    rest_.remove_prefix(element.whole.size());
    return element;
}

std::string_view DerReader::Take(BYTE tag)
{
    if (*error_ == ERROR_SUCCESS && rest_.empty())
        *error_ = CRYPT_E_ASN1_EOD;
    if (*error_ == ERROR_SUCCESS && NextTag() != tag)
        *error_ = CRYPT_E_ASN1_BADTAG;
    return TakeAny().content;
}

std::string_view DerReader::TakeOptional(BYTE tag)
{
    return NextTag() == tag ? TakeAny().content : std::string_view();
}

void DerReader::Fail(LONG error)
{
    if (*error_ == ERROR_SUCCESS)
        *error_ = error;
}

std::string MakeDer(BYTE tag, std::string_view content)
{
    std::string element(1, static_cast<char>(tag));
    const size_t size = content.size();
    if (size < kLongLength) {
        element += static_cast<char>(size);
    } else {
        size_t lengthBytes = 1;
        while (lengthBytes < sizeof size && size >> (8 * lengthBytes) != 0)
            lengthBytes++;
        element += static_cast<char>(kLongLength | lengthBytes);
        for (size_t i = lengthBytes; i-- > 0;)
            element += static_cast<char>(size >> (8 * i));
    }
    return element.append(content);
}
