// A certificate in memory: its DER bytes and a CERT_INFO that points into them.
#pragma once

#include <deque>
#include <string>
#include <string_view>
#include <vector>

#include "platform/linux/win_certificates.h"
#include "platform/linux/x509_parts.h"
#include "platform/owner.h"

constexpr size_t kSha1Size = 20;

class Certificate : private NonCopyable {
  public:
    // Takes a copy of the certificate at the front of `encoded`. CRYPT_E_ASN1_... if it isn't one;
    // the object is then unusable.
    LONG Parse(std::string_view encoded);

    std::string_view der() const { return der_; }
    BYTE* data() { return reinterpret_cast<BYTE*>(der_.data()); }
    PCERT_INFO info() { return &info_; }

  private:
    void ReadInfo(DerReader* toBeSigned);
    void ReadExtensions(DerReader* extensions);
    LPSTR Keep(std::string text);
    CRYPT_ALGORITHM_IDENTIFIER AlgorithmOf(const AlgorithmParts& parts);

    std::string der_;
    CERT_INFO info_ = {};
    // What the structure points to besides the DER bytes. A deque's elements never move.
    std::deque<std::string> texts_;
    std::vector<CERT_EXTENSION> extensions_;
};

// kSha1Size bytes.
std::string Sha1Of(std::string_view bytes);
