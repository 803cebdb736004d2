// Keys of a vault.
#pragma once

#include "vaultsim/refusal.h"
#include "vaultsim/request.h"

namespace vaultsim {

// The kind of key that a request for a key, or a certificate's policy, asks for.
struct KeyKind {
    bool rsa = true;
    bool hardware = false;
    int bits = 2048;              // RSA
    const char* curve = nullptr;  // otherwise
};

// Throws a Refusal for a kind that the service doesn't offer, and for a hardware key in a standard vault.
KeyKind ReadKeyKind(const Vault& vault, const Json& object);
Pkey MakeMaterial(const KeyKind& kind);
std::vector<std::string> DefaultOperations(bool rsa);

// What is particular to keys: see deletion.h.
struct Keys {
    using Object = KeyObject;
    using Version = KeyVersion;
    static constexpr char kWord[] = "Key";
    static constexpr char kArea[] = "deletedkeys";
    static ByName<KeyObject>& Live(Vault& vault) { return vault.keys; }
    static ByName<Deleted<KeyObject>>& Area(Vault& vault) { return vault.deletedKeys; }
    static Refusal Missing(const std::string& name);
    static Json Bundle(const Vault& vault, const KeyObject& key, const KeyVersion& version);
    static Json Item(const Vault& vault, const KeyObject& key);
    static void Detach(Vault& vault, Deleted<KeyObject>& deleted);
};

Answer CreateKey(const VaultRequest& request);

}  // namespace vaultsim
