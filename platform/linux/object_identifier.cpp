#include "platform/linux/object_identifier.h"

#include "platform/linux/der.h"
#include "platform/linux/openssl_errors.h"
#include "platform/linux/openssl_pointers.h"

namespace {

using ObjectPointer = OpensslOwner<ASN1_OBJECT, ASN1_OBJECT_free>;

constexpr int kDotted = 1;

}  // namespace

bool ObjectIdToText(std::string_view content, std::string* text)
{
    const QuietOpenssl quiet;
    const std::string element = MakeDer(kDerObjectId, content);
    const BYTE* at = reinterpret_cast<const BYTE*>(element.data());
    const ObjectPointer object(d2i_ASN1_OBJECT(nullptr, &at, static_cast<long>(element.size())));
    const int length = object ? OBJ_obj2txt(nullptr, 0, object.get(), kDotted) : 0;
    if (length <= 0)
        return false;
    // Room for the terminator that OBJ_obj2txt writes.
    text->resize(static_cast<size_t>(length) + 1);
    OBJ_obj2txt(text->data(), length + 1, object.get(), kDotted);
    text->resize(static_cast<size_t>(length));
    return true;
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
