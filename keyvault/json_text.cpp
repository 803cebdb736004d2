#include "keyvault/json_text.h"

#include <stdlib.h>

#include "support/guards.h"
#include "support/text.h"

static bool NeedsEscape(WCHAR ch)
{
    return ch < 0x20 || ch == '"' || ch == '\\';
}

static TextWriter& WriteEscaped(TextWriter& writer, WCHAR ch)
{
    if (ch >= 0x20)
        return writer.Text(TEXT("\\")).Text(TextView(&ch, 1));
    return writer.Text(ch < 0x10 ? TEXT("\\u000") : TEXT("\\u00")).Hex(ch);
}

int BldStrCatJson(BldStr* str, const WCHAR* value)
{
    constexpr size_t kLongestEscape = 6;
    const TextView text = View(value);
    size_t escapes = 0;
    for (const WCHAR ch : text)
        escapes += NeedsEscape(ch) ? 1 : 0;
    if (!escapes)
        return BldStrCat(str, value);

    const size_t room = text.size() + escapes * (kLongestEscape - 1) + 1;
    const MallocPtr<WCHAR> escaped(static_cast<WCHAR*>(calloc(room, sizeof(WCHAR))));
    if (!escaped)
        return 0;
    TextWriter writer(escaped.get(), room);
    for (const WCHAR& ch : text) {
        if (NeedsEscape(ch))
            WriteEscaped(writer, ch);
        else
            writer.Text(TextView(&ch, 1));
    }
    return BldStrCat(str, escaped.get());
}
