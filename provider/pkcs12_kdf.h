// PKCS#12's key derivation from passwords, with SHA-1.
#pragma once

#include "provider/import_memory.h"
#include "provider/nt_status.h"
#include "provider/pkcs8_scheme.h"

enum class Pkcs12Purpose : BYTE { Key = 1, Iv = 2 };

class Pkcs12Kdf {
  public:
    ~Pkcs12Kdf() { Wipe(hash_, sizeof(hash_)); }

    // password: cbPassword bytes, borrowed like the encryption. 0; NTE_NO_MEMORY; the status of the platform's hash.
    SECURITY_STATUS Prepare(const BYTE* password, DWORD cbPassword, const Pkcs8Encryption& encryption);

    // Writes cbOutput bytes.
    SECURITY_STATUS Derive(Pkcs12Purpose purpose, BYTE* output, DWORD cbOutput);

  private:
    static constexpr DWORD kCbHash = 20;
    static constexpr DWORD kCbBlock = 64;  // the hash's block

    void FillBlocks();
    NTSTATUS HashOnce(const BYTE* first, DWORD cbFirst, const BYTE* second, DWORD cbSecond);
    NTSTATUS HashRound(const BYTE* diversifier);
    void AddToBlocks();

    AlgorithmPtr algorithm_;
    const BYTE* password_ = nullptr;
    DWORD cbPassword_ = 0;
    const Pkcs8Encryption* encryption_ = nullptr;
    WipedBlock blocks_;  // salt, then password, each repeated to fill whole blocks
    BYTE hash_[kCbHash] = {};
};
