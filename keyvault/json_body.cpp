#include "keyvault/json_body.h"

#include <utility>

#include "keyvault/json_text.h"
#include "support/text.h"

JsonBody::JsonBody(DWORD chars) : text_(BldStrNew(chars)), whole_(text_ && text_->cStr) {}

JsonBody& JsonBody::Text(const WCHAR* fragment)
{
    whole_ = whole_ && BldStrCat(text_.get(), fragment);
    return *this;
}

JsonBody& JsonBody::Value(const WCHAR* value)
{
    whole_ = whole_ && BldStrCatJson(text_.get(), value);
    return *this;
}

JsonBody& JsonBody::Number(LONG value)
{
    WCHAR digits[41];
    TextWriter(digits, 41).Number(value);
    return Text(digits);
}

BldStrPtr JsonBody::Take()
{
    if (!whole_)
        text_.reset();
    return std::move(text_);
}
