#include "platform/linux/object_identifier.h"

#include "platform/linux/der.h"
#include "platform/linux/openssl_errors.h"
#include "platform/linux/openssl_pointers.h"

namespace {

using ObjectPointer = Owner<ASN1_OBJECT, ASN1_OBJECT_free>;

constexpr int kDotted = 1;

}  // namespace

std::string ObjectIdText(const ASN1_OBJECT* object)
{
    // Room for the terminator that OBJ_obj2txt writes.
    const int length = OBJ_obj2txt(nullptr, 0, object, kDotted);
    std::string text(static_cast<size_t>(length > 0 ? length + 1 : 1), '\0');
    OBJ_obj2txt(text.data(), static_cast<int>(text.size()), object, kDotted);
    text.pop_back();
    return text;
}

bool ObjectIdToText(std::string_view content, std::string* text)
{
    const QuietOpenssl quiet;
    const std::string element = MakeDer(kDerObjectId, content);
    const BYTE* at = reinterpret_cast<const BYTE*>(element.data());
    const ObjectPointer object(d2i_ASN1_OBJECT(nullptr, &at, static_cast<long>(element.size())));
    if (object)
        *text = ObjectIdText(object.get());
    return object && !text->empty();
}

bool ObjectIdFromText(std::string_view text, std::string* content)
{
    const QuietOpenssl quiet;
    const ObjectPointer object(OBJ_txt2obj(std::string(text).c_str(), kDotted));
    if (!object || OBJ_length(object.get()) == 0)
        return false;
    content->assign(reinterpret_cast<const char*>(OBJ_get0_data(object.get())), OBJ_length(object.get()));
    return true;
}
