// Smart pointers for OpenSSL's objects.
#pragma once

#include <openssl/bio.h>
#include <openssl/evp.h>
#include <openssl/x509.h>

#include "platform/owner.h"

using BioPointer = Owner<BIO, BIO_free_all>;  // the whole chain
using CertificatePointer = Owner<X509, X509_free>;
using KeyPointer = Owner<EVP_PKEY, EVP_PKEY_free>;
