// Certificate names in text form. Parsed by hand, as an independent check of what the system and OpenSSL write.
#pragma once

#include <string>

#include "vaultsim/openssl_ptr.h"

namespace vaultsim {

// Reads `CN=web01, O="Acme, Inc."`: the types that Windows writes (CN, OU, O, L, S or ST, C, E, DC, STREET, T, G, SN,
// I, SERIALNUMBER, OID.x.y), values in double quotes if need be, "+" between the parts of one element. The elements are
// encoded last first, as the service does. Null if the text isn't a valid name.
X509NamePtr ParseName(const std::string& text);

}  // namespace vaultsim
