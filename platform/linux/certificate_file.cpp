#include "platform/linux/certificate_file.h"

#include <limits.h>
#include <openssl/pem.h>

#include <charconv>
#include <new>

#include "platform/find_row.h"
#include "platform/linux/openssl_errors.h"
#include "platform/linux/openssl_pointers.h"
#include "platform/linux/text.h"

namespace {

constexpr std::string_view kBegin = "-----BEGIN CERTIFICATE-----";
constexpr std::string_view kFieldPrefix = "KeyProvInfo.";
constexpr std::string_view kFieldEnd = ": ";
constexpr const char* kPemName = "CERTIFICATE";

struct TextField {
    std::string_view name;
    std::u16string KeyProviderInfo::*member;
};
constexpr TextField kTextFields[] = {
    {"ContainerName", &KeyProviderInfo::containerName},
    {"ProvName", &KeyProviderInfo::providerName},
};

struct NumberField {
    std::string_view name;
    DWORD KeyProviderInfo::*member;
};
constexpr NumberField kNumberFields[] = {
    {"ProvType", &KeyProviderInfo::providerType},
    {"Flags", &KeyProviderInfo::flags},
    {"KeySpec", &KeyProviderInfo::keySpec},
};

void FreeBlock(void* block)
{
    OPENSSL_free(block);
}
template <typename T>
using OpensslBlock = Owner<T, FreeBlock>;

struct Escape {
    char plain;
    char letter;
};
constexpr Escape kEscapes[] = {{'\\', '\\'}, {'\n', 'n'}, {'\r', 'r'}};

std::string Escaped(const std::u16string& text)
{
    std::string escaped;
    for (const char c : ToUtf8(text)) {
        const Escape* escape = FindRow(kEscapes, [c](const Escape& row) { return row.plain == c; });
        escaped.append(escape ? 1 : 0, '\\') += escape ? escape->letter : c;
    }
    return escaped;
}

std::u16string Unescaped(std::string_view text)
{
    std::string plain;
    for (size_t i = 0; i < text.size(); i++) {
        const char next = text[i] == '\\' && i + 1 < text.size() ? text[i + 1] : '\0';
        const Escape* escape = FindRow(kEscapes, [next](const Escape& row) { return row.letter == next; });
        plain += escape ? escape->plain : text[i];
        i += escape ? 1 : 0;
    }
    return ToUtf16(plain);
}

bool ReadNumber(std::string_view text, DWORD* number)
{
    const char* const end = text.data() + text.size();
    const auto read = std::from_chars(text.data(), end, *number);
    return read.ec == std::errc() && read.ptr == end;
}

// *text: what follows `KeyProvInfo.NAME: `.
bool IsField(std::string_view line, std::string_view name, std::string_view* text)
{
    const std::string start = std::string(kFieldPrefix).append(name).append(kFieldEnd);
    if (line.substr(0, start.size()) != start)
        return false;
    *text = line.substr(start.size());
    return true;
}

// False when the line is a damaged field.
bool ReadLine(std::string_view line, std::optional<KeyProviderInfo>* info)
{
    if (line.substr(0, kFieldPrefix.size()) != kFieldPrefix)
        return true;
    if (!info->has_value())
        info->emplace();
    std::string_view text;
    for (const TextField& field : kTextFields) {
        if (IsField(line, field.name, &text))
            (**info).*field.member = Unescaped(text);
    }
    for (const NumberField& field : kNumberFields) {
        if (IsField(line, field.name, &text) && !ReadNumber(text, &((**info).*field.member)))
            return false;
    }
    return true;
}

// Removes the first line and its end, LF or CR LF, from the text.
std::string_view TakeLine(std::string_view* text)
{
    const size_t end = text->find('\n');
    std::string_view line = text->substr(0, end);
    text->remove_prefix(end == text->npos ? text->size() : end + 1);
    if (!line.empty() && line.back() == '\r')
        line.remove_suffix(1);
    return line;
}

// `pem` begins with the first line of the block.
bool ReadPem(std::string_view pem, std::string* der)
{
    if (pem.size() > INT_MAX)
        return false;
    const BioPointer bio(BIO_new_mem_buf(pem.data(), static_cast<int>(pem.size())));
    if (!bio)
        throw std::bad_alloc();
    char* name = nullptr;
    char* header = nullptr;
    BYTE* data = nullptr;
    long size = 0;
    const QuietOpenssl quiet;
    const bool done = PEM_read_bio(bio.get(), &name, &header, &data, &size) == 1;
    const OpensslBlock<char> nameBlock(name);
    const OpensslBlock<char> headerBlock(header);
    const OpensslBlock<BYTE> dataBlock(data);
    if (!done || std::string_view(name) != kPemName || *header != '\0')
        return false;
    der->assign(reinterpret_cast<char*>(data), static_cast<size_t>(size));
    return true;
}

std::string MakePem(std::string_view der)
{
    const BioPointer bio(BIO_new(BIO_s_mem()));
    char* text = nullptr;
    if (!bio || PEM_write_bio(bio.get(), kPemName, "", reinterpret_cast<const BYTE*>(der.data()),
                              static_cast<long>(der.size())) <= 0)
        throw std::bad_alloc();
    const long size = BIO_get_mem_data(bio.get(), &text);
    return std::string(text, static_cast<size_t>(size));
}

}  // namespace

bool ParseCertificateFile(std::string_view content, CertificateRecord* certificate)
{
    while (!content.empty()) {
        const std::string_view rest = content;
        const std::string_view line = TakeLine(&content);
        if (line == kBegin)
            return ReadPem(rest, &certificate->der);
        if (!ReadLine(line, &certificate->keyProvider))
            return false;
    }
    return false;
}

std::string FormatCertificateFile(const CertificateRecord& certificate)
{
    std::string content;
    const auto addField = [&content](std::string_view name, const std::string& text) {
        content.append(kFieldPrefix).append(name).append(kFieldEnd).append(text) += '\n';
    };
    if (certificate.keyProvider.has_value()) {
        const KeyProviderInfo& info = *certificate.keyProvider;
        for (const TextField& field : kTextFields)
            addField(field.name, Escaped(info.*field.member));
        for (const NumberField& field : kNumberFields)
            addField(field.name, std::to_string(info.*field.member));
    }
    return content + MakePem(certificate.der);
}
