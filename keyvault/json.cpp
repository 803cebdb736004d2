#include "keyvault/json.h"

#include <json-c/printbuf.h>
#include <limits.h>
#include <string.h>

#include <atomic>

#include "platform/owner.h"
#include "support/log.h"
#include "support/wipe.h"

namespace {

void WipeStrings(json_object* value);

void WipeMembers(json_object* object)
{
    json_object_iter member;
    json_object_object_foreachC(object, member) WipeStrings(member.val);
}

void WipeElements(json_object* array)
{
    const size_t count = json_object_array_length(array);
    for (size_t i = 0; i < count; i++)
        WipeStrings(json_object_array_get_idx(array, i));
}

// The recursion is bounded: the parser limits the nesting.
void WipeStrings(json_object* value)
{
    switch (json_object_get_type(value)) {
        case json_type_object:
            return WipeMembers(value);
        case json_type_array:
            return WipeElements(value);
        case json_type_string:
            return Wipe(const_cast<char*>(json_object_get_string(value)),
                        static_cast<size_t>(json_object_get_string_len(value)));
        default:
            return;
    }
}

// A parser that isn't in use, empty and wiped, or NULL.
std::atomic<json_tokener*> spare{nullptr};
constexpr int kMostKept = 4096;

// json-c's parser, made to wipe what it frees: the buffer in which it assembles strings, and the objects of a text that
// turns out not to be JSON. Both are in fields that json-c documents as private. One parser is kept for the next text.
class Tokener : private NonCopyable {
  public:
    Tokener() : tokener_(spare.exchange(nullptr))
    {
        if (!tokener_)
            tokener_ = json_tokener_new();
    }
    ~Tokener()
    {
        if (!tokener_)
            return;
        Wipe(tokener_->pb->buf, static_cast<size_t>(tokener_->pb->size));
        for (int level = 0; level <= tokener_->depth; level++)
            WipeStrings(tokener_->stack[level].current);
        json_tokener_reset(tokener_);
        json_tokener* none = nullptr;
        if (tokener_->pb->size > kMostKept || !spare.compare_exchange_strong(none, tokener_))
            json_tokener_free(tokener_);
    }

    // Makes room for the longest string that a text of `length` bytes can contain: if the buffer grew, its old block
    // would not be wiped. False: no memory.
    bool Reserve(size_t length)
    {
        if (!tokener_ || length >= INT_MAX / 2)
            return false;
        if (printbuf_memset(tokener_->pb, 0, 0, static_cast<int>(length)) != 0)
            return false;
        printbuf_reset(tokener_->pb);
        return true;
    }
    // Why the parsed text isn't JSON; NULL if it is.
    const char* Fault() const
    {
        const json_tokener_error error = json_tokener_get_error(tokener_);
        return error == json_tokener_success ? nullptr : json_tokener_error_desc(error);
    }
    // NULL: not JSON, or no memory.
    json_object* Parse(const char* text)
    {
        JsonPtr parsed(json_tokener_parse_ex(tokener_, text, -1));
        if (json_tokener_get_error(tokener_) != json_tokener_success)
            parsed.reset();
        return parsed.release();
    }

  private:
    json_tokener* tokener_;
};

}  // namespace

void JsonPutter::operator()(json_object* object) const
{
    WipeStrings(object);
    json_object_put(object);
}

JsonPtr JsonParse(const char* text)
{
    Tokener tokener;
    return JsonPtr(text && tokener.Reserve(strlen(text) + 1) ? tokener.Parse(text) : nullptr);
}

JsonPtr JsonParseAnswer(const WCHAR* message, const char* body)
{
    Tokener tokener;
    if (!body || !tokener.Reserve(strlen(body) + 1))
        return nullptr;
    JsonPtr answer(tokener.Parse(body));
    if (const char* fault = tokener.Fault())
        LogAscii(message, fault);
    return answer;
}

void JsonDetach()
{
    if (json_tokener* kept = spare.exchange(nullptr))
        json_tokener_free(kept);
}

json_object* JsonMember(json_object* object, const char* name)
{
    return json_object_is_type(object, json_type_object) ? json_object_object_get(object, name) : nullptr;
}

const char* JsonMemberText(json_object* object, const char* name)
{
    json_object* member = JsonMember(object, name);
    return member ? json_object_get_string(member) : nullptr;
}
