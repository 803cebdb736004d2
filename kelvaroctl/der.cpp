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

static Bytes WithoutLeadingZeros(const Bytes& number)
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

namespace {
// Reads a structure element by element. Lengths must be in their shortest form.
class Reader {
  public:
    Reader(const BYTE* data, size_t size) : data_(data), size_(size) {}

    bool Take(BYTE tag, Reader* content)
    {
        size_t length = 0;
        size_t head = 0;
        if (size_ < 2 || data_[0] != tag || !Length(&length, &head) || length > size_ - head)
            return false;
        *content = Reader(data_ + head, length);
        data_ += head + length;
        size_ -= head + length;
        return true;
    }

    // A non-negative integer in its shortest form.
    bool TakeNumber(Bytes* number)
    {
        Reader content(nullptr, 0);
        if (!Take(kInteger, &content) || content.size_ == 0 || content.data_[0] >= 0x80)
            return false;
        if (content.size_ > 1 && content.data_[0] == 0 && content.data_[1] < 0x80)
            return false;
        number->assign(content.data_, content.data_ + content.size_);
        return true;
    }

    bool AtEnd() const { return size_ == 0; }

  private:
    // A signature of the largest curve needs one length octet after the first.
    bool Length(size_t* length, size_t* head) const
    {
        *length = data_[1];
        *head = 2;
        if (data_[1] < 0x80)
            return true;
        if (data_[1] != 0x81 || size_ < 3 || data_[2] < 0x80)
            return false;
        *length = data_[2];
        *head = 3;
        return true;
    }

    const BYTE* data_;
    size_t size_;
};
}  // namespace

bool RawFromDerSignature(const Bytes& der, size_t width, Bytes* raw)
{
    Reader whole(der.data(), der.size());
    Reader sequence(nullptr, 0);
    Bytes r;
    Bytes s;
    if (!whole.Take(kDerSequence, &sequence) || !whole.AtEnd() || !sequence.TakeNumber(&r) ||
        !sequence.TakeNumber(&s) || !sequence.AtEnd())
        return false;
    Bytes second;
    if (!ToWidth(r, width, raw) || !ToWidth(s, width, &second))
        return false;
    raw->insert(raw->end(), second.begin(), second.end());
    return true;
}

}  // namespace kelvaroctl
