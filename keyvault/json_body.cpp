#include "keyvault/json_body.h"

#include "keyvault/json_text.h"
#include "support/codepage.h"
#include "support/text.h"

JsonBody::JsonBody(DWORD chars) : text_(BldStrNew(chars)), isWhole_(text_ && text_->cStr) {}

JsonBody& JsonBody::Text(const WCHAR* fragment)
{
    isWhole_ = isWhole_ && BldStrCat(text_.get(), fragment);
    return *this;
}

JsonBody& JsonBody::Quoted(const WCHAR* value)
{
    Text(TEXT("\""));
    isWhole_ = isWhole_ && BldStrCatJson(text_.get(), value);
    return Text(TEXT("\""));
}

JsonBody& JsonBody::Number(LONG value)
{
    WCHAR digits[41];
    TextWriter(digits, 41).Number(value);
    return Text(digits);
}

const WCHAR* JsonBody::text() const
{
    return isWhole_ ? text_->cStr : nullptr;
}

SecretBytesPtr JsonBody::Bytes() const
{
    return SecretBytesPtr(WStrToBytesStr(text()));
}
