// A host of the module: opens a provider of it and drives it through its table.
#pragma once

#include "platform/cng_provider.h"

namespace bench {

class Module {
  public:
    // The module as it is built, loaded from its file. Throws when that or a provider cannot be had, as every call here
    // does when it fails.
    Module();
    // The same code inside this program.
    explicit Module(GetKeyStorageInterfaceFn getInterface);
    ~Module();
    Module(const Module&) = delete;
    Module& operator=(const Module&) = delete;

    // Walks over all keys of the machine, each of which the module reads; returns their number.
    long CountKeys();

    // A key of the machine, and one signature of a SHA-256 hash with it (PKCS#1 for RSA keys).
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
