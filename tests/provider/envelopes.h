// Serialized stores as hosts pass them with enveloped keys. The envelopes are in tests/data/pkcs7.
#pragma once

#include "tests/provider/bytes.h"

// A record of a serialized store.
inline Bytes StoreRecord(DWORD id, const Bytes& data)
{
    return Words({id, 1, static_cast<DWORD>(data.size())}) + data;
}

// The property that names a certificate's container. wide: with offsets of 64 bits.
inline Bytes ProviderInfo(const std::string& container, DWORD flags = 0, bool wide = false)
{
    const Bytes containerName = TextBytes(container);
    const Bytes providerName = TextBytes("Microsoft Software Key Storage Provider");
    const DWORD texts = wide ? 48 : 28;
    const DWORD second = texts + static_cast<DWORD>(containerName.size());
    const Bytes head =
        wide ? Words({texts, 0, second, 0, 0, flags, 0, 0, 0, 0, 1, 0}) : Words({texts, second, 0, flags, 0, 0, 1});
    return StoreRecord(2, head + containerName + providerName);
}

// The certificate of "me" or "other".
inline Bytes CertificateRecord(const std::string& recipient)
{
    return StoreRecord(32, ReadData("pkcs7/" + recipient + ".crt"));
}

inline Bytes SerializedStore(const Bytes& records)
{
    return Words({0, 0x54524543}) + records + Words({0, 0, 0});
}
