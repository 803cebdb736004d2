#include "keyvault/json_text.h"

#include <stdlib.h>

#include "support/guards.h"
#include "support/text.h"

namespace {

constexpr size_t kLongestEscape = 6;

// One character of a value, escaped if necessary.
struct EscapeText {
    WCHAR text[kLongestEscape];
    size_t length;
};

EscapeText EscapeOf(WCHAR ch)
{
    if (ch == '"' || ch == '\\')
        return {{'\\', ch}, 2};
    if (ch >= 0x20 && ch < 0x80)
        return {{ch}, 1};
    EscapeText escape = {{'\\', 'u'}, kLongestEscape};
    for (size_t i = 0; i < 4; i++)
        escape.text[2 + i] = TEXT("0123456789abcdef")[ch >> (12 - 4 * i) & 0xF];
    return escape;
}

}  // namespace

int BldStrCatJson(BldStr* str, const WCHAR* value)
{
    const TextView text = View(value);
    size_t length = 0;
    for (const WCHAR ch : text)
        length += EscapeOf(ch).length;
    if (length == text.size())
        return BldStrCat(str, value);

    const MallocPtr<WCHAR> escaped(static_cast<WCHAR*>(calloc(length + 1, sizeof(WCHAR))));
    if (!escaped)
        return 0;
    TextWriter writer(escaped.get(), length + 1);
    for (const WCHAR ch : text) {
        const EscapeText escape = EscapeOf(ch);
        writer.Text(TextView(escape.text, escape.length));
    }
    return BldStrCat(str, escaped.get());
}
