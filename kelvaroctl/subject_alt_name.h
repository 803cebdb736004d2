// Subject alternative names from the command line.
#pragma once

#include <string>

#include "kelvaroctl/text.h"

namespace kelvaroctl {

struct SubjectAltName {
    BYTE tag;       // of the choice in GeneralName
    Bytes content;  // without tag and length
};

// "dns:web01.contoso.com", "ip:10.0.0.1", "ip:2001:db8::1", "email:ops@contoso.com", "uri:https://contoso.com/"; the
// letter case of the prefix is ignored. Throws a usage failure for anything else.
SubjectAltName ParseSubjectAltName(const std::string& text);

}  // namespace kelvaroctl
