#include "bench/module.h"

#include <stdexcept>

#include "platform/product.h"
#include "tests/common/test_root.h"

namespace bench {

static void Check(SECURITY_STATUS status, const char* call)
{
    if (status != ERROR_SUCCESS)
        throw std::runtime_error(std::string(call) + " failed: " + std::to_string(status));
}

std::string Module::File()
{
    return KELVARO_MODULE_PATH;
}

Module::Module(const std::string& path) : library_(LoadLibraryW(Wide(path).c_str()))
{
    if (!library_)
        throw std::runtime_error("cannot load " + path);
    Open(reinterpret_cast<GetKeyStorageInterfaceFn>(
        reinterpret_cast<void (*)()>(GetProcAddress(library_, "GetKeyStorageInterface"))));
}

Module::Module(GetKeyStorageInterfaceFn getInterface)
{
    Open(getInterface);
}

void Module::Open(GetKeyStorageInterfaceFn getInterface)
{
    Check(getInterface(kProviderName, &table_, 0), "GetKeyStorageInterface");
    Check(table_->OpenProvider(&provider_, kProviderName, 0), "OpenProvider");
}

Module::~Module()
{
    table_->FreeProvider(provider_);
    if (library_)
        FreeLibrary(library_);
}

long Module::CountKeys()
{
    PVOID walk = nullptr;
    for (long count = 0;; ++count) {
        NCryptKeyName* name = nullptr;
        const SECURITY_STATUS status = table_->EnumKeys(provider_, nullptr, &name, &walk, NCRYPT_MACHINE_KEY_FLAG);
        if (status == NTE_NO_MORE_ITEMS) {
            table_->FreeBuffer(walk);
            return count;
        }
        Check(status, "EnumKeys");
        table_->FreeBuffer(name);
    }
}

Module::Key::Key(Module& module, const WCHAR* name, bool rsa) : module_(module), rsa_(rsa)
{
    Check(module.table_->OpenKey(module.provider_, &handle_, name, 0, NCRYPT_MACHINE_KEY_FLAG), "OpenKey");
}

Module::Key::~Key()
{
    module_.table_->FreeKey(module_.provider_, handle_);
}

void Module::Key::Sign()
{
    BCRYPT_PKCS1_PADDING_INFO padding = {BCRYPT_SHA256_ALGORITHM};
    BYTE hash[32] = {1, 2, 3};
    BYTE signature[256];
    DWORD size = 0;
    Check(module_.table_->SignHash(module_.provider_, handle_, rsa_ ? &padding : nullptr, hash, sizeof(hash), signature,
                                   sizeof(signature), &size, rsa_ ? BCRYPT_PAD_PKCS1 : 0),
          "SignHash");
}

}  // namespace bench
