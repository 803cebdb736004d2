// A host of the module: opens a provider and calls it through its function table.
#pragma once

#include <string>

#include "platform/cng_provider.h"

namespace bench {

class Module {
  public:
    // Loads the module and opens a provider. All calls here throw if they fail.
    explicit Module(const std::string& path = File());
    // Uses the same code, linked into this program.
    explicit Module(GetKeyStorageInterfaceFn getInterface);
    ~Module();
    static std::string File();
    Module(const Module&) = delete;
    Module& operator=(const Module&) = delete;

    // Enumerates all machine keys, each of which the module reads. Returns their number.
    long CountKeys();

    // A machine key that signs a SHA-256 hash (RSA: with PKCS#1).
    class Key {
      public:
        Key(Module& module, const WCHAR* name, bool rsa);
        ~Key();
        Key(const Key&) = delete;
        Key& operator=(const Key&) = delete;
        void Sign();  // may be called from many threads

      private:
        Module& module_;
        NCRYPT_KEY_HANDLE handle_ = 0;
        bool rsa_;
    };

  private:
    void Open(GetKeyStorageInterfaceFn getInterface);

    HMODULE library_ = nullptr;
    NCRYPT_KEY_STORAGE_FUNCTION_TABLE* table_ = nullptr;
    NCRYPT_PROV_HANDLE provider_ = 0;
};

}  // namespace bench
