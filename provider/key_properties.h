// The properties of a key that the provider knows, by name.
#pragma once

#include "provider/key_object.h"
#include "provider/property_value.h"

// Reads one into *value. The caller holds the key's lock for as long as it uses the value. NTE_NOT_SUPPORTED: no such
// property, or this key has none.
SECURITY_STATUS ReadBuildinKeyProperty(const KSP_KEY& key, const WCHAR* name, PropertyValue* value);

// Applies a property to the key object. On success the top bit of *dwFlags (NCRYPT_PERSIST_FLAG) says whether the
// caller must store the property in the list too. pbInput: cbInput bytes, of any alignment.
SECURITY_STATUS SetBuildinKeyProperty(KSP_KEY* pKey, const WCHAR* pszProperty, const BYTE* pbInput, DWORD cbInput,
                                      DWORD* dwFlags);
