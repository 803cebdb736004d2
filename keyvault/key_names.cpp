// The two forms of key names.
//
// A vault allows letters, digits and "-" only. A clear name that consists of these and doesn't start with "-" is used
// unchanged. Any other is encoded: "-", then three base-50 digits for each code unit, lowest first, padded with "z" to
// 43 characters, so that an encoded name is always longer than a plain one.
#include <algorithm>

#include "keyvault/kvkey.h"
#include "support/text.h"

namespace {

constexpr WCHAR kCodedMark = '-';
constexpr WCHAR kFiller = 'z';
constexpr WCHAR kHighestSymbol = 'x';  // the digit 49
constexpr WCHAR kForeignSymbol = 'y';  // never in an encoded name
constexpr size_t kShortestCoded = 43;
constexpr size_t kPlaces = 3;
constexpr int kWeights[kPlaces] = {1, 50, 2500};

bool IsPlainCharacter(WCHAR ch)
{
    return (ch >= 'A' && ch <= 'Z') || (ch >= 'a' && ch <= 'z') || (ch >= '0' && ch <= '9') || ch == '-';
}

bool NeedsCode(TextView clearName)
{
    if (!clearName.empty() && clearName[0] == kCodedMark)
        return true;
    for (const WCHAR ch : clearName) {
        if (!IsPlainCharacter(ch))
            return true;
    }
    return false;
}

constexpr WCHAR kSymbols[] = TEXT("ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwx");

struct Triple {
    WCHAR symbols[kPlaces];
};

// The digits of a code unit, lowest first.
constexpr Triple TripleOf(unsigned unit)
{
    return {{kSymbols[unit % 50], kSymbols[unit / 50 % 50], kSymbols[unit / 2500]}};
}

// Precomputed for ASCII, of which most names consist.
struct AsciiTriples {
    Triple of[0x80];
};
constexpr AsciiTriples MakeAsciiTriples()
{
    AsciiTriples triples = {};
    for (unsigned unit = 0; unit < 0x80; unit++)
        triples.of[unit] = TripleOf(unit);
    return triples;
}
constexpr AsciiTriples kAsciiTriples = MakeAsciiTriples();

int DigitOf(WCHAR symbol)
{
    return symbol < '[' ? symbol - 'A' : symbol - 'a' + 26;
}

// Reads the triple at `at`, or as much of it as there is; *value is 0 after the last one. False: malformed.
bool ReadTriple(TextView coded, size_t at, int* value)
{
    *value = 0;
    for (size_t place = 0; place < kPlaces && at + place < coded.size(); place++) {
        const WCHAR symbol = coded[at + place];
        if (symbol == kFiller)
            return place == 0;
        if (symbol > kHighestSymbol)
            return false;
        *value += DigitOf(symbol) * kWeights[place];
    }
    return true;
}

}  // namespace

int KVCConvertClearKeyNameToEncoded(const WCHAR* clearName, WCHAR* encodedName, int* pEncoded)
{
    const TextView clear = View(clearName);
    if (clear.size() > kClearNameLimit)
        return 0;
    if (!NeedsCode(clear)) {
        TextCopyCut(encodedName, kEncodedNameChars, clear);
        *pEncoded = 0;
        return 1;
    }
    encodedName[0] = kCodedMark;
    WCHAR* end = encodedName + 1;
    for (const WCHAR unit : clear) {
        const Triple triple = unit < 0x80 ? kAsciiTriples.of[unit] : TripleOf(unit);
        end = std::copy_n(triple.symbols, kPlaces, end);
    }
    if (end < encodedName + kShortestCoded)
        end = std::fill_n(end, encodedName + kShortestCoded - end, kFiller);
    std::fill(end, encodedName + kEncodedNameChars, WCHAR{0});
    *pEncoded = 1;
    return 1;
}

int KVCConvertEncodedKeyNameToClear(const WCHAR* encodedName, WCHAR* clearName, int* pEncoded)
{
    const TextView encoded = View(encodedName);
    for (size_t i = 0; i < kClearNameChars; i++)
        clearName[i] = 0;
    // A long name that isn't one of ours is copied and cut.
    if (encoded.size() <= kClearNameLimit || encoded[0] != kCodedMark ||
        encoded.find(kForeignSymbol) != TextView::npos) {
        TextCopyCut(clearName, kClearNameChars, encoded);
        *pEncoded = 0;
        return 1;
    }
    for (size_t i = 0; i < kClearNameLimit; i++) {
        int value = 0;
        if (!ReadTriple(encoded, 1 + kPlaces * i, &value))
            return 0;
        if (value == 0)
            break;
        clearName[i] = static_cast<WCHAR>(value);
    }
    *pEncoded = 1;
    return 1;
}
