#include "kelvaroctl/der.h"

#include <algorithm>

namespace kelvaroctl {

constexpr BYTE kInteger = 0x02;
constexpr BYTE kBitString = 0x03;
constexpr BYTE kNull = 0x05;
constexpr BYTE kObjectId = 0x06;

Bytes DerElement(BYTE tag, const Bytes& content)
{
    Bytes element{tag};
    const size_t size = content.size();
    if (size < 0x80) {
        element.push_back(static_cast<BYTE>(size));
    } else {
        int octets = 1;
        while (size >> (8 * octets))
            ++octets;
        element.push_back(static_cast<BYTE>(0x80 | octets));
        while (octets--)
            element.push_back(static_cast<BYTE>(size >> (8 * octets)));
    }
    element.insert(element.end(), content.begin(), content.end());
    return element;
}

Bytes DerSequence(std::initializer_list<Bytes> members)
{
    Bytes content;
    for (const Bytes& member : members)
        content.insert(content.end(), member.begin(), member.end());
    return DerElement(kDerSequence, content);
}

Bytes WithoutLeadingZeros(const Bytes& number)
{
    return Bytes(std::find_if(number.begin(), number.end(), [](BYTE byte) { return byte != 0; }), number.end());
}

Bytes DerInteger(const Bytes& number)
{
    Bytes content = WithoutLeadingZeros(number);
    // A set top bit would make the number negative.
    if (content.empty() || content[0] >= 0x80)
        content.insert(content.begin(), 0);
    return DerElement(kInteger, content);
}

Bytes DerBitString(const Bytes& content)
{
    Bytes withUnusedBits{0};
    withUnusedBits.insert(withUnusedBits.end(), content.begin(), content.end());
    return DerElement(kBitString, withUnusedBits);
}

Bytes DerObjectId(const Bytes& encodedArcs)
{
    return DerElement(kObjectId, encodedArcs);
}

Bytes DerNull()
{
    return DerElement(kNull, Bytes());
}

bool ToWidth(const Bytes& number, size_t width, Bytes* result)
{
    const Bytes significant = WithoutLeadingZeros(number);
    if (significant.size() > width)
        return false;
    result->assign(width - significant.size(), 0);
    result->insert(result->end(), significant.begin(), significant.end());
    return true;
}

Bytes DerFromRawSignature(const Bytes& raw)
{
    const auto middle = raw.begin() + static_cast<std::ptrdiff_t>(raw.size() / 2);
    return DerSequence({DerInteger(Bytes(raw.begin(), middle)), DerInteger(Bytes(middle, raw.end()))});
}

bool RawFromDerSignature(const Bytes& der, size_t width, Bytes* raw)
{
    // A sequence of up to 255 bytes, then the first integer's tag and length.
    const size_t first = der.size() > 1 && der[1] == 0x81 ? 5 : 4;
    if (der.size() < first || der.size() - first < der[first - 1])
        return false;
    const auto second = der.begin() + static_cast<std::ptrdiff_t>(first + der[first - 1]);
    Bytes s;
    if (!ToWidth(Bytes(der.begin() + static_cast<std::ptrdiff_t>(first), second), width, raw) ||
        der.end() - second < 2 || !ToWidth(Bytes(second + 2, der.end()), width, &s))
        return false;
    raw->insert(raw->end(), s.begin(), s.end());
    // Rejects any other encoding of these numbers.
    return DerFromRawSignature(*raw) == der;
}

}  // namespace kelvaroctl
