#include "keyvault/token_answer.h"

#include <string.h>

#include <algorithm>
#include <utility>

#include "keyvault/json.h"

namespace {

bool IsVisible(char ch)
{
    return ch > 0x20 && ch < 0x7F;
}

// One member of a sign-in answer.
struct AnswerText {
    const char* text;  // NULL when missing or null
    bool isSound;      // visible ASCII throughout, or missing
};

AnswerText FindText(json_object* answer, const char* name)
{
    json_object* member = JsonMember(answer, name);
    const char* text = member ? json_object_get_string(member) : nullptr;
    if (!text)
        return {nullptr, true};
    // A zero byte inside the text would end it early.
    const size_t length = strlen(text);
    const bool isWhole = !json_object_is_type(member, json_type_string) ||
                         length == static_cast<size_t>(json_object_get_string_len(member));
    return {text, isWhole && std::all_of(text, text + length, IsVisible)};
}

// Copies a text; NULL stays NULL. False: no memory.
bool Copy(const char* from, SecretStrPtr& to)
{
    if (!from)
        return true;
    to.reset(BldStrNewStrFromAscii(from));
    return to != nullptr;
}

}  // namespace

TokenAnswer TakeTokenAnswer(const char* body, Token* token)
{
    const JsonPtr answer = JsonParseAnswer(TEXT("KVCAuthenticate answer is not JSON"), body);
    const AnswerText text = FindText(answer.get(), "access_token");
    const AnswerText type = FindText(answer.get(), "token_type");
    if (!text.isSound || !type.isSound)
        return {};
    Token copy;
    if (!Copy(text.text, copy.text) || !Copy(type.text, copy.type))
        return {false, false, true};
    const TokenAnswer taken = {copy.text != nullptr, copy.type != nullptr, false};
    if (taken.text)
        token->text = std::move(copy.text);
    if (taken.type)
        token->type = std::move(copy.type);
    return taken;
}
