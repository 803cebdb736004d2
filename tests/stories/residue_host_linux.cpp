// A host that uses secrets and lets go of everything, so that residue_linux_test.cpp can search its memory for what is
// left.
//
//     residue_host MODULE FOLDER
//
// Each line of standard input is a step: its verb, a name, and up to two files of FOLDER whose content it uses, with
// the number of the parameter that the second one is passed as. In a name "+" is a blank. The answer is the step's
// status.
//
// What libcurl and OpenSSL free without wiping doesn't count: those blocks, told apart by who frees them, are wiped
// here.
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

const NCRYPT_KEY_STORAGE_FUNCTION_TABLE* table;
NCRYPT_PROV_HANDLE provider;
NCRYPT_KEY_HANDLE key;

// The host's own copies of a secret, while a step runs.
struct {
    WCHAR name[64];
    BYTE input[16384];
    DWORD cbInput;
    NCryptBuffer parameter;
    BYTE value[1024];  // the parameter's
    BYTE output[16384];
    DWORD cbOutput;
} step;

SECURITY_STATUS Transform(decltype(NCRYPT_KEY_STORAGE_FUNCTION_TABLE::Encrypt) operation)
{
    return operation(provider, key, step.input, step.cbInput, nullptr, step.output, sizeof(step.output), &step.cbOutput,
                     NCRYPT_PAD_PKCS1_FLAG);
}

SECURITY_STATUS SetProperty(DWORD flags)
{
    return table->SetKeyProperty(provider, key, step.name, step.input, step.cbInput, flags);
}

SECURITY_STATUS Import()
{
    NCryptBufferDesc list = {0, 1, &step.parameter};
    return table->ImportKey(provider, 0, step.name, step.parameter.BufferType ? &list : nullptr, &key, step.input,
                            step.cbInput, NCRYPT_DO_NOT_FINALIZE_FLAG);
}

// Frees a block without wiping it: the search must find its content.
SECURITY_STATUS Leave()
{
    void* const block = malloc(sizeof(step.input));
    memcpy(block, step.input, step.cbInput);
    free(block);
    return ERROR_SUCCESS;
}

const struct {
    const char* verb;
    SECURITY_STATUS (*run)();
} kSteps[] = {
    {"provider", [] { return table->OpenProvider(&provider, TEXT("Nbq7Xwz4Jkp2Vhs9"), 0); }},
    {"free-provider", [] { return table->FreeProvider(provider); }},
    {"key", [] { return table->OpenKey(provider, &key, step.name, 0, NCRYPT_MACHINE_KEY_FLAG); }},
    {"user-key", [] { return table->OpenKey(provider, &key, step.name, 0, 0); }},
    {"create", [] { return table->CreatePersistedKey(provider, &key, BCRYPT_RSA_ALGORITHM, step.name, 0, 0); }},
    {"free-key", [] { return table->FreeKey(provider, key); }},
    {"encrypt", [] { return Transform(table->Encrypt); }},
    {"decrypt", [] { return Transform(table->Decrypt); }},
    {"set", [] { return SetProperty(NCRYPT_PERSIST_FLAG); }},
    {"keep", [] { return SetProperty(NCRYPT_PERSIST_ONLY_FLAG); }},
    {"set-provider", [] { return table->SetProviderProperty(provider, step.name, step.input, step.cbInput, 0); }},
    {"import", Import},
    {"leave", Leave},
};

// Without a stream, whose buffer would keep the bytes.
DWORD ReadWhole(const char* folder, const char* name, BYTE* bytes, size_t room)
{
    char path[512];
    snprintf(path, sizeof(path), "%s/%s", folder, name);
    const int file = *name ? open(path, O_RDONLY | O_CLOEXEC) : -1;
    const ssize_t size = file < 0 ? 0 : read(file, bytes, room);
    close(file);
    return size > 0 ? static_cast<DWORD>(size) : 0;
}

SECURITY_STATUS Run(const char* folder, const char* line)
{
    char verb[64] = "", name[64] = "", input[64] = "", value[64] = "";
    unsigned number = 0;
    sscanf(line, "%63s %63s %63s %u %63s", verb, name, input, &number, value);
    for (size_t i = 0; name[i]; i++)
        step.name[i] = static_cast<WCHAR>(name[i] == '+' ? ' ' : name[i]);
    step.cbInput = ReadWhole(folder, input, step.input, sizeof(step.input));
    step.parameter = {ReadWhole(folder, value, step.value, sizeof(step.value)), number, step.value};
    SECURITY_STATUS status = NTE_NOT_SUPPORTED;
    for (const auto& row : kSteps) {
        if (!strcmp(verb, row.verb))
            status = row.run();
    }
    explicit_bzero(&step, sizeof(step));
    return status;
}

}  // namespace

extern "C" {
void* __libc_malloc(size_t size);

// Both replace the C library's own in every library of this process. No block is used again, so nothing overwrites what
// a freed one still has.
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
    void* const module = dlopen(arguments[1], RTLD_NOW);
    dl_iterate_phdr(AddLibrary, nullptr);
    const auto get =
        reinterpret_cast<GetKeyStorageInterfaceFn>(module ? dlsym(module, "GetKeyStorageInterface") : nullptr);
    NCRYPT_KEY_STORAGE_FUNCTION_TABLE* found = nullptr;
    if (!get || get(TEXT("any name"), &found, 0) != 0)
        return 2;
    table = found;
    char line[256];
    while (fgets(line, sizeof(line), stdin))
        dprintf(STDOUT_FILENO, "0x%08x", static_cast<unsigned>(Run(arguments[2], line)));
    return 0;
}
