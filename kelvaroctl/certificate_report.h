// Formats a certificate of the store.
#pragma once

#include <string>
#include <vector>

#include "kelvaroctl/personal_store.h"
#include "kelvaroctl/tool.h"

namespace kelvaroctl {

// record: see certificate_record.h.
Json CertificateObject(const StoredCertificate& certificate, const std::string& record);
std::vector<std::string> CertificateRow(const StoredCertificate& certificate, const std::string& record);

}  // namespace kelvaroctl
