// A host that uses secrets, lets go of everything, and then searches all memory that it can write for what is left.
//
//     residue_host MODULE FOLDER
//
// Standard input has the steps, a line each, then "search", then the needles: a name, a blank and the bytes in
// hexadecimal digits, each byte XORed with kMask so that a needle doesn't find itself. Files that steps name are
// in FOLDER. Answers on standard output: "STEP STATUS" for each step, "done" before the needles are read, then "NAME
// in REGION behind TEXT" for each place where a needle was found, and "end".
//
// What libcurl and OpenSSL free as it is doesn't count: their blocks are wiped here, told apart by who frees them.
#include <dlfcn.h>
#include <fcntl.h>
#include <link.h>
#include <malloc.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include "platform/cng_provider.h"

namespace {

constexpr unsigned char kMask = 0xA5;
constexpr size_t kMostNeedles = 1024;
constexpr size_t kLongestNeedle = 64;

struct Needle {
    char name[40];
    unsigned char masked[kLongestNeedle];
    size_t size;
};
Needle needles[kMostNeedles];
size_t needleCount;

// The code of the libraries whose blocks are wiped.
struct Code {
    uintptr_t from;
    uintptr_t to;
};
Code libraries[8];
size_t libraryCount;

int AddLibrary(dl_phdr_info* info, size_t, void*)
{
    static constexpr const char* kTheirs[] = {"/libcurl", "/libssl.", "/libcrypto.", "/libnghttp2"};
    bool isTheirs = false;
    for (const char* name : kTheirs)
        isTheirs = isTheirs || strstr(info->dlpi_name, name);
    for (ElfW(Half) i = 0; isTheirs && i < info->dlpi_phnum; i++) {
        const ElfW(Phdr)& part = info->dlpi_phdr[i];
        if (part.p_type == PT_LOAD && (part.p_flags & PF_X) != 0 && libraryCount < 8)
            libraries[libraryCount++] = {info->dlpi_addr + part.p_vaddr, info->dlpi_addr + part.p_vaddr + part.p_memsz};
    }
    return 0;
}

bool IsTheirs(const void* caller)
{
    const uintptr_t at = reinterpret_cast<uintptr_t>(caller);
    for (size_t i = 0; i < libraryCount; i++) {
        if (at >= libraries[i].from && at < libraries[i].to)
            return true;
    }
    return false;
}

// What the host itself has of a secret while a step runs.
BYTE input[16384];
BYTE password[1024];
BYTE output[16384];

const char* folder;
const NCRYPT_KEY_STORAGE_FUNCTION_TABLE* table;
NCRYPT_PROV_HANDLE provider;
NCRYPT_KEY_HANDLE key;

// Without a stream, whose buffer would keep the bytes.
DWORD ReadWhole(const char* name, BYTE* bytes, size_t room)
{
    char path[512];
    snprintf(path, sizeof(path), "%s/%s", folder, name);
    const int file = open(path, O_RDONLY | O_CLOEXEC);
    const ssize_t size = read(file, bytes, room);
    close(file);
    return size > 0 ? static_cast<DWORD>(size) : 0;
}

void Widen(const char* text, WCHAR (&wide)[64])
{
    size_t length = 0;
    while (text[length] && length < 63) {
        wide[length] = static_cast<WCHAR>(text[length]);
        length++;
    }
    wide[length] = 0;
}

SECURITY_STATUS Open(const char* name, DWORD flags)
{
    WCHAR wide[64];
    Widen(name, wide);
    return table->OpenKey(provider, &key, wide, 0, flags);
}

SECURITY_STATUS Transform(NCryptEncryptFn operation, const char* file)
{
    DWORD size = 0;
    const DWORD cb = ReadWhole(file, input, sizeof(input));
    return operation(provider, key, input, cb, nullptr, output, sizeof(output), &size, NCRYPT_PAD_PKCS1_FLAG);
}

SECURITY_STATUS Create(const char* name)
{
    WCHAR wide[64];
    Widen(name, wide);
    return table->CreatePersistedKey(provider, &key, BCRYPT_RSA_ALGORITHM, wide, 0, 0);
}

SECURITY_STATUS SetProperty(const char* name, const char* file, DWORD flags)
{
    WCHAR wide[64];
    Widen(name, wide);
    return table->SetKeyProperty(provider, key, wide, input, ReadWhole(file, input, sizeof(input)), flags);
}

// parameter: the number of a parameter buffer and the file that it comes from, or 0.
SECURITY_STATUS Import(const char* type, const char* file, ULONG parameter, const char* parameterFile)
{
    WCHAR wide[64];
    Widen(type, wide);
    NCryptBuffer buffer = {0, parameter, password};
    NCryptBufferDesc list = {0, 1, &buffer};
    if (parameter)
        buffer.cbBuffer = ReadWhole(parameterFile, password, sizeof(password));
    const DWORD size = ReadWhole(file, input, sizeof(input));
    return table->ImportKey(provider, 0, wide, parameter ? &list : nullptr, &key, input, size,
                            NCRYPT_DO_NOT_FINALIZE_FLAG);
}

// Frees a block with the content of a file as it is: the search must find that.
SECURITY_STATUS Leave(const char* file)
{
    void* const block = malloc(sizeof(input));
    memcpy(block, input, ReadWhole(file, input, sizeof(input)));
    free(block);
    return ERROR_SUCCESS;
}

struct Step {
    char name[64];
    char first[64];
    char second[64];
    ULONG number;
    char third[64];
};
const struct {
    const char* name;
    SECURITY_STATUS (*run)(const Step& step);
} kSteps[] = {
    {"provider", [](const Step&) { return table->OpenProvider(&provider, TEXT("any name"), 0); }},
    {"free-provider", [](const Step&) { return table->FreeProvider(provider); }},
    {"key", [](const Step& step) { return Open(step.first, NCRYPT_MACHINE_KEY_FLAG); }},
    {"user-key", [](const Step& step) { return Open(step.first, 0); }},
    {"create", [](const Step& step) { return Create(step.first); }},
    {"free-key", [](const Step&) { return table->FreeKey(provider, key); }},
    {"encrypt", [](const Step& step) { return Transform(table->Encrypt, step.first); }},
    {"decrypt", [](const Step& step) { return Transform(table->Decrypt, step.first); }},
    {"set", [](const Step& step) { return SetProperty(step.first, step.second, 0); }},
    {"keep", [](const Step& step) { return SetProperty(step.first, step.second, NCRYPT_PERSIST_ONLY_FLAG); }},
    {"import", [](const Step& step) { return Import(step.first, step.second, step.number, step.third); }},
    {"leave", [](const Step& step) { return Leave(step.first); }},
};

SECURITY_STATUS Run(const char* line)
{
    Step step = {};
    sscanf(line, "%63s %63s %63s %u %63s", step.name, step.first, step.second, &step.number, step.third);
    for (const auto& row : kSteps) {
        if (!strcmp(step.name, row.name))
            return row.run(step);
    }
    return NTE_NOT_SUPPORTED;
}

void RunSteps()
{
    char line[256];
    while (fgets(line, sizeof(line), stdin) && strcmp(line, "search\n") != 0) {
        line[strcspn(line, "\n")] = 0;
        const SECURITY_STATUS status = Run(line);
        explicit_bzero(input, sizeof(input));
        explicit_bzero(password, sizeof(password));
        explicit_bzero(output, sizeof(output));
        printf("%s 0x%08x\n", line, static_cast<unsigned>(status));
    }
}

// False: there are more than there is room for.
bool ReadNeedles()
{
    char line[256];
    while (fgets(line, sizeof(line), stdin)) {
        if (needleCount == kMostNeedles)
            return false;
        Needle& needle = needles[needleCount++];
        char digits[2 * kLongestNeedle + 1] = {};
        sscanf(line, "%39s %128s", needle.name, digits);
        for (unsigned byte = 0; sscanf(digits + 2 * needle.size, "%2x", &byte) == 1; needle.size++)
            needle.masked[needle.size] = static_cast<unsigned char>(byte);
    }
    return true;
}

// The needles by their first two bytes, each the number of one + 1 and of the next such; 0 ends the chain.
uint16_t heads[1 << 16];
uint16_t nexts[kMostNeedles];

size_t FirstTwo(const unsigned char* bytes)
{
    return static_cast<size_t>(bytes[0] << 8 | bytes[1]);
}

void SortNeedles()
{
    for (size_t n = 0; n < needleCount; n++) {
        const unsigned char* const masked = needles[n].masked;
        const unsigned char plain[2] = {static_cast<unsigned char>(masked[0] ^ kMask),
                                        static_cast<unsigned char>(masked[1] ^ kMask)};
        uint16_t& head = heads[FirstTwo(plain)];
        nexts[n] = head;
        head = static_cast<uint16_t>(n + 1);
    }
}

bool IsAt(const Needle& needle, const unsigned char* memory, const unsigned char* end)
{
    if (needle.size > static_cast<size_t>(end - memory))
        return false;
    for (size_t i = 0; i < needle.size; i++) {
        if ((memory[i] ^ kMask) != needle.masked[i])
            return false;
    }
    return true;
}

// With what stands in front of the place, as far as it is text.
void Report(const Needle& needle, const unsigned char* at, const unsigned char* begin, const char* region)
{
    char context[41] = {};
    size_t length = 0;
    for (const unsigned char* byte = at - begin > 80 ? at - 80 : begin; byte < at && length < 40; byte++) {
        if (*byte)
            context[length++] = *byte > 0x20 && *byte < 0x7F ? static_cast<char>(*byte) : '.';
    }
    printf("%s in %s behind %s\n", needle.name, region, context);
}

void Search(const unsigned char* from, const unsigned char* to, const char* region)
{
    for (const unsigned char* at = from; at + 2 <= to; at++) {
        for (size_t n = heads[FirstTwo(at)]; n; n = nexts[n - 1]) {
            if (IsAt(needles[n - 1], at, to))
                Report(needles[n - 1], at, from, region);
        }
    }
}

void SearchAll()
{
    static char maps[1 << 16];
    const int file = open("/proc/self/maps", O_RDONLY | O_CLOEXEC);
    size_t size = 0;
    for (ssize_t more; (more = read(file, maps + size, sizeof(maps) - 1 - size)) > 0;)
        size += static_cast<size_t>(more);
    close(file);
    for (char* line = strtok(maps, "\n"); line; line = strtok(nullptr, "\n")) {
        uintptr_t from = 0;
        uintptr_t to = 0;
        char access[5] = {};
        char name[256] = "-";
        sscanf(line, "%lx-%lx %4s %*s %*s %*s %255s", &from, &to, access, name);
        if (access[0] == 'r' && access[1] == 'w' && strncmp(name, "[vv", 3) != 0)
            Search(reinterpret_cast<const unsigned char*>(from), reinterpret_cast<const unsigned char*>(to), name);
    }
}

}  // namespace

extern "C" {
void* __libc_malloc(size_t size);

// Both stand in front of the C library's own, for every library of this process. No block is used again, so that
// nothing covers what a freed one was left with.
void free(void* block)
{
    if (block && IsTheirs(__builtin_return_address(0)))
        explicit_bzero(block, malloc_usable_size(block));
}

void* realloc(void* block, size_t size)
{
    void* const moved = __libc_malloc(size);
    const size_t oldSize = block ? malloc_usable_size(block) : 0;
    if (!moved)
        return nullptr;
    memcpy(moved, block, oldSize < size ? oldSize : size);
    if (IsTheirs(__builtin_return_address(0)))
        explicit_bzero(block, oldSize);
    return moved;
}
}

int main(int, char** arguments)
{
    static char outputBuffer[4096];
    setvbuf(stdout, outputBuffer, _IOLBF, sizeof(outputBuffer));
    folder = arguments[2];
    void* const module = dlopen(arguments[1], RTLD_NOW);
    dl_iterate_phdr(AddLibrary, nullptr);
    const auto get =
        reinterpret_cast<GetKeyStorageInterfaceFn>(module ? dlsym(module, "GetKeyStorageInterface") : nullptr);
    NCRYPT_KEY_STORAGE_FUNCTION_TABLE* found = nullptr;
    if (!get || get(TEXT("any name"), &found, 0) != 0)
        return 2;
    table = found;
    RunSteps();
    puts("done");
    if (!ReadNeedles())
        return 3;
    SortNeedles();
    SearchAll();
    puts("end");
    return 0;
}
