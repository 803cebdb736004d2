// Smart pointers for OpenSSL's objects.
#pragma once

#include <openssl/bio.h>
#include <openssl/evp.h>
#include <openssl/x509.h>

#include "platform/owner.h"

template <typename T, auto kFree>
using OpensslOwner = Owner<T, kFree>;

using BioPointer = OpensslOwner<BIO, BIO_free_all>;  // the whole chain
using CertificatePointer = OpensslOwner<X509, X509_free>;
using KeyPointer = OpensslOwner<EVP_PKEY, EVP_PKEY_free>;
