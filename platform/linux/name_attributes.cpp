#include "platform/linux/name_attributes.h"

#include "platform/find_row.h"
#include "platform/linux/text.h"

namespace {

constexpr NameAttribute kAttributes[] = {
    {u"CN", "2.5.4.3", NameText::directory},
    {u"L", "2.5.4.7", NameText::directory},
    {u"O", "2.5.4.10", NameText::directory},
    {u"OU", "2.5.4.11", NameText::directory},
    {u"E", "1.2.840.113549.1.9.1", NameText::ia5},
    {u"Email", "1.2.840.113549.1.9.1", NameText::ia5},
    {u"C", "2.5.4.6", NameText::printable},
    {u"S", "2.5.4.8", NameText::directory},
    {u"ST", "2.5.4.8", NameText::directory},
    {u"STREET", "2.5.4.9", NameText::directory},
    {u"T", "2.5.4.12", NameText::directory},
    {u"Title", "2.5.4.12", NameText::directory},
    {u"G", "2.5.4.42", NameText::directory},
    {u"GN", "2.5.4.42", NameText::directory},
    {u"GivenName", "2.5.4.42", NameText::directory},
    {u"I", "2.5.4.43", NameText::directory},
    {u"Initials", "2.5.4.43", NameText::directory},
    {u"SN", "2.5.4.4", NameText::directory},
    {u"DC", "0.9.2342.19200300.100.1.25", NameText::ia5},
    {u"SERIALNUMBER", "2.5.4.5", NameText::printable},
    {u"Description", "2.5.4.13", NameText::directory},
    {u"PostalCode", "2.5.4.17", NameText::directory},
    {u"POBox", "2.5.4.18", NameText::directory},
    {u"Phone", "2.5.4.20", NameText::printable},
    {u"X21Address", "2.5.4.24", NameText::printable},
    {u"dnQualifier", "2.5.4.46", NameText::printable},
};

}  // namespace

const NameAttribute* FindAttributeById(std::string_view objectId)
{
    return FindRow(kAttributes, [objectId](const NameAttribute& row) { return row.objectId == objectId; });
}

const NameAttribute* FindAttributeByKey(std::u16string_view key)
{
    return FindRow(kAttributes, [key](const NameAttribute& row) { return EqualIgnoringCase(row.key, key); });
}
