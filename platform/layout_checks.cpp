// Pins published structures, constants and names that this system relies on against literals.
// Compiled in every build, so that a differing header fails the build.
#include <string_view>

#include "platform/cng_provider.h"

namespace {

constexpr bool k64Bit = sizeof(void*) == 8;
static_assert(k64Bit || sizeof(void*) == 4, "a pointer has 64 or 32 bits");

constexpr size_t BySize(size_t in64Bit, size_t in32Bit)
{
    return k64Bit ? in64Bit : in32Bit;
}

constexpr bool IsText(const WCHAR* published, std::basic_string_view<WCHAR> literal)
{
    return std::basic_string_view<WCHAR>(published) == literal;
}

constexpr DWORD AsCode(HRESULT status)
{
    return static_cast<DWORD>(status);
}

// ---- basic types ----

static_assert(sizeof(WCHAR) == 2);
static_assert(sizeof(BYTE) == 1 && sizeof(WORD) == 2 && sizeof(DWORD) == 4 && sizeof(ULONG) == 4);
static_assert(sizeof(LONG) == 4 && sizeof(BOOL) == 4 && sizeof(SECURITY_STATUS) == 4 && sizeof(NTSTATUS) == 4);
static_assert(static_cast<DWORD>(-1) > 0 && static_cast<LONG>(-1) < 0);
// NOLINTNEXTLINE(bugprone-sizeof-expression): the size of the handle is meant, not of what it points to.
static_assert(sizeof(HANDLE) == sizeof(void*) && sizeof(HKEY) == sizeof(void*));
static_assert(sizeof(NCRYPT_PROV_HANDLE) == sizeof(void*) && sizeof(NCRYPT_KEY_HANDLE) == sizeof(void*));
static_assert(sizeof(FILETIME) == 8 && offsetof(FILETIME, dwHighDateTime) == 4);
static_assert(sizeof(UUID) == 16 && offsetof(UUID, Data4) == 8);

// ---- the provider's function table ----

static_assert(sizeof(BCRYPT_INTERFACE_VERSION) == 4);
static_assert(offsetof(BCRYPT_INTERFACE_VERSION, MajorVersion) == 0);
static_assert(offsetof(BCRYPT_INTERFACE_VERSION, MinorVersion) == 2);
constexpr BCRYPT_INTERFACE_VERSION kVersion = NCRYPT_KEY_STORAGE_INTERFACE_VERSION;
static_assert(kVersion.MajorVersion == 1 && kVersion.MinorVersion == 0);
static_assert(NCRYPT_KEY_STORAGE_INTERFACE == 0x00010001);

static_assert(sizeof(NCRYPT_KEY_STORAGE_FUNCTION_TABLE) == BySize(216, 108));
static_assert(offsetof(NCRYPT_KEY_STORAGE_FUNCTION_TABLE, Version) == 0);
#define SLOT_AT(slot, index) \
    static_assert(offsetof(NCRYPT_KEY_STORAGE_FUNCTION_TABLE, slot) == BySize(8, 4) * (index), #slot)
SLOT_AT(OpenProvider, 1);
SLOT_AT(OpenKey, 2);
SLOT_AT(CreatePersistedKey, 3);
SLOT_AT(GetProviderProperty, 4);
SLOT_AT(GetKeyProperty, 5);
SLOT_AT(SetProviderProperty, 6);
SLOT_AT(SetKeyProperty, 7);
SLOT_AT(FinalizeKey, 8);
SLOT_AT(DeleteKey, 9);
SLOT_AT(FreeProvider, 10);
SLOT_AT(FreeKey, 11);
SLOT_AT(FreeBuffer, 12);
SLOT_AT(Encrypt, 13);
SLOT_AT(Decrypt, 14);
SLOT_AT(IsAlgSupported, 15);
SLOT_AT(EnumAlgorithms, 16);
SLOT_AT(EnumKeys, 17);
SLOT_AT(ImportKey, 18);
SLOT_AT(ExportKey, 19);
SLOT_AT(SignHash, 20);
SLOT_AT(VerifySignature, 21);
SLOT_AT(PromptUser, 22);
SLOT_AT(NotifyChangeKey, 23);
SLOT_AT(SecretAgreement, 24);
SLOT_AT(DeriveKey, 25);
SLOT_AT(FreeSecret, 26);
#undef SLOT_AT

// ---- structures that hosts and the provider exchange ----

static_assert(sizeof(NCryptAlgorithmName) == BySize(24, 16));
static_assert(offsetof(NCryptAlgorithmName, pszName) == 0);
static_assert(offsetof(NCryptAlgorithmName, dwClass) == BySize(8, 4));
static_assert(offsetof(NCryptAlgorithmName, dwAlgOperations) == BySize(12, 8));
static_assert(offsetof(NCryptAlgorithmName, dwFlags) == BySize(16, 12));

static_assert(sizeof(NCryptKeyName) == BySize(24, 16));
static_assert(offsetof(NCryptKeyName, pszName) == 0);
static_assert(offsetof(NCryptKeyName, pszAlgid) == BySize(8, 4));
static_assert(offsetof(NCryptKeyName, dwLegacyKeySpec) == BySize(16, 8));
static_assert(offsetof(NCryptKeyName, dwFlags) == BySize(20, 12));

static_assert(sizeof(NCRYPT_SUPPORTED_LENGTHS) == 16);
static_assert(offsetof(NCRYPT_SUPPORTED_LENGTHS, dwMinLength) == 0);
static_assert(offsetof(NCRYPT_SUPPORTED_LENGTHS, dwMaxLength) == 4);
static_assert(offsetof(NCRYPT_SUPPORTED_LENGTHS, dwIncrement) == 8);
static_assert(offsetof(NCRYPT_SUPPORTED_LENGTHS, dwDefaultLength) == 12);

static_assert(sizeof(NCRYPT_UI_POLICY) == BySize(32, 20));
static_assert(offsetof(NCRYPT_UI_POLICY, dwVersion) == 0);
static_assert(offsetof(NCRYPT_UI_POLICY, dwFlags) == 4);
static_assert(offsetof(NCRYPT_UI_POLICY, pszCreationTitle) == 8);
static_assert(offsetof(NCRYPT_UI_POLICY, pszFriendlyName) == BySize(16, 12));
static_assert(offsetof(NCRYPT_UI_POLICY, pszDescription) == BySize(24, 16));

static_assert(sizeof(NCryptBuffer) == BySize(16, 12));
static_assert(offsetof(NCryptBuffer, cbBuffer) == 0);
static_assert(offsetof(NCryptBuffer, BufferType) == 4);
static_assert(offsetof(NCryptBuffer, pvBuffer) == 8);
static_assert(sizeof(NCryptBufferDesc) == BySize(16, 12));
static_assert(offsetof(NCryptBufferDesc, ulVersion) == 0);
static_assert(offsetof(NCryptBufferDesc, cBuffers) == 4);
static_assert(offsetof(NCryptBufferDesc, pBuffers) == 8);

static_assert(sizeof(BCRYPT_PKCS1_PADDING_INFO) == BySize(8, 4));
static_assert(sizeof(BCRYPT_PSS_PADDING_INFO) == BySize(16, 8));
static_assert(offsetof(BCRYPT_PSS_PADDING_INFO, cbSalt) == BySize(8, 4));
static_assert(sizeof(BCRYPT_OAEP_PADDING_INFO) == BySize(24, 12));
static_assert(offsetof(BCRYPT_OAEP_PADDING_INFO, pbLabel) == BySize(8, 4));
static_assert(offsetof(BCRYPT_OAEP_PADDING_INFO, cbLabel) == BySize(16, 8));

static_assert(sizeof(BCRYPT_RSAKEY_BLOB) == 24);
static_assert(offsetof(BCRYPT_RSAKEY_BLOB, Magic) == 0);
static_assert(offsetof(BCRYPT_RSAKEY_BLOB, BitLength) == 4);
static_assert(offsetof(BCRYPT_RSAKEY_BLOB, cbPublicExp) == 8);
static_assert(offsetof(BCRYPT_RSAKEY_BLOB, cbModulus) == 12);
static_assert(offsetof(BCRYPT_RSAKEY_BLOB, cbPrime1) == 16);
static_assert(offsetof(BCRYPT_RSAKEY_BLOB, cbPrime2) == 20);
static_assert(sizeof(BCRYPT_ECCKEY_BLOB) == 8);
static_assert(offsetof(BCRYPT_ECCKEY_BLOB, dwMagic) == 0);
static_assert(offsetof(BCRYPT_ECCKEY_BLOB, cbKey) == 4);

static_assert(sizeof(SECURITY_DESCRIPTOR) == BySize(40, 20));
static_assert(offsetof(SECURITY_DESCRIPTOR, Control) == 2);
static_assert(offsetof(SECURITY_DESCRIPTOR, Owner) == BySize(8, 4));
static_assert(offsetof(SECURITY_DESCRIPTOR, Group) == BySize(16, 8));
static_assert(offsetof(SECURITY_DESCRIPTOR, Sacl) == BySize(24, 12));
static_assert(offsetof(SECURITY_DESCRIPTOR, Dacl) == BySize(32, 16));
static_assert(sizeof(SECURITY_DESCRIPTOR_RELATIVE) == 20);
static_assert(offsetof(SECURITY_DESCRIPTOR_RELATIVE, Owner) == 4);
static_assert(offsetof(SECURITY_DESCRIPTOR_RELATIVE, Group) == 8);
static_assert(offsetof(SECURITY_DESCRIPTOR_RELATIVE, Sacl) == 12);
static_assert(offsetof(SECURITY_DESCRIPTOR_RELATIVE, Dacl) == 16);
static_assert(sizeof(ACL) == 8 && sizeof(ACE_HEADER) == 4 && offsetof(SID, SubAuthority) == 8);

static_assert(sizeof(DATA_BLOB) == BySize(16, 8));
static_assert(offsetof(DATA_BLOB, cbData) == 0 && offsetof(DATA_BLOB, pbData) == BySize(8, 4));

static_assert(sizeof(CRYPT_BIT_BLOB) == BySize(24, 12));
static_assert(offsetof(CRYPT_BIT_BLOB, pbData) == BySize(8, 4) &&
              offsetof(CRYPT_BIT_BLOB, cUnusedBits) == BySize(16, 8));
static_assert(sizeof(CRYPT_ALGORITHM_IDENTIFIER) == BySize(24, 12));
static_assert(offsetof(CRYPT_ALGORITHM_IDENTIFIER, Parameters) == BySize(8, 4));
static_assert(sizeof(CERT_PUBLIC_KEY_INFO) == BySize(48, 24));
static_assert(offsetof(CERT_PUBLIC_KEY_INFO, PublicKey) == BySize(24, 12));
static_assert(sizeof(CERT_EXTENSION) == BySize(32, 16) && offsetof(CERT_EXTENSION, Value) == BySize(16, 8));
static_assert(sizeof(CRYPT_ATTRIBUTE) == BySize(24, 12) && offsetof(CRYPT_ATTRIBUTE, rgValue) == BySize(16, 8));
static_assert(sizeof(CERT_REQUEST_INFO) == BySize(88, 44));
static_assert(offsetof(CERT_REQUEST_INFO, Subject) == BySize(8, 4));
static_assert(offsetof(CERT_REQUEST_INFO, SubjectPublicKeyInfo) == BySize(24, 12));
static_assert(offsetof(CERT_REQUEST_INFO, cAttribute) == BySize(72, 36));
static_assert(offsetof(CERT_REQUEST_INFO, rgAttribute) == BySize(80, 40));
static_assert(sizeof(CERT_INFO) == BySize(208, 112));
static_assert(offsetof(CERT_INFO, SerialNumber) == BySize(8, 4));
static_assert(offsetof(CERT_INFO, SignatureAlgorithm) == BySize(24, 12));
static_assert(offsetof(CERT_INFO, Issuer) == BySize(48, 24));
static_assert(offsetof(CERT_INFO, NotBefore) == BySize(64, 32) && offsetof(CERT_INFO, NotAfter) == BySize(72, 40));
static_assert(offsetof(CERT_INFO, Subject) == BySize(80, 48));
static_assert(offsetof(CERT_INFO, SubjectPublicKeyInfo) == BySize(96, 56));
static_assert(offsetof(CERT_INFO, IssuerUniqueId) == BySize(144, 80));
static_assert(offsetof(CERT_INFO, SubjectUniqueId) == BySize(168, 92));
static_assert(offsetof(CERT_INFO, cExtension) == BySize(192, 104));
static_assert(offsetof(CERT_INFO, rgExtension) == BySize(200, 108));
static_assert(sizeof(CERT_CONTEXT) == BySize(40, 20));
static_assert(offsetof(CERT_CONTEXT, pbCertEncoded) == BySize(8, 4));
static_assert(offsetof(CERT_CONTEXT, cbCertEncoded) == BySize(16, 8));
static_assert(offsetof(CERT_CONTEXT, pCertInfo) == BySize(24, 12));
static_assert(offsetof(CERT_CONTEXT, hCertStore) == BySize(32, 16));
static_assert(sizeof(CRYPT_KEY_PROV_INFO) == BySize(48, 28));
static_assert(offsetof(CRYPT_KEY_PROV_INFO, pwszProvName) == BySize(8, 4));
static_assert(offsetof(CRYPT_KEY_PROV_INFO, dwProvType) == BySize(16, 8));
static_assert(offsetof(CRYPT_KEY_PROV_INFO, dwFlags) == BySize(20, 12));
static_assert(offsetof(CRYPT_KEY_PROV_INFO, rgProvParam) == BySize(32, 20));
static_assert(offsetof(CRYPT_KEY_PROV_INFO, dwKeySpec) == BySize(40, 24));

static_assert(sizeof(URL_COMPONENTS) == BySize(104, 60));
static_assert(offsetof(URL_COMPONENTS, lpszHostName) == BySize(24, 16));
static_assert(offsetof(URL_COMPONENTS, nPort) == BySize(36, 24));
static_assert(offsetof(URL_COMPONENTS, lpszUrlPath) == BySize(72, 44));
static_assert(offsetof(URL_COMPONENTS, dwExtraInfoLength) == BySize(96, 56));

// ---- magic words of the key blobs ----

static_assert(BCRYPT_RSAPUBLIC_MAGIC == 0x31415352);
static_assert(BCRYPT_RSAPRIVATE_MAGIC == 0x32415352);
static_assert(BCRYPT_RSAFULLPRIVATE_MAGIC == 0x33415352);
static_assert(BCRYPT_ECDH_PUBLIC_P256_MAGIC == 0x314B4345);
static_assert(BCRYPT_ECDH_PUBLIC_P384_MAGIC == 0x334B4345);
static_assert(BCRYPT_ECDH_PUBLIC_P521_MAGIC == 0x354B4345);
static_assert(BCRYPT_ECDSA_PUBLIC_P256_MAGIC == 0x31534345);
static_assert(BCRYPT_ECDSA_PUBLIC_P384_MAGIC == 0x33534345);
static_assert(BCRYPT_ECDSA_PUBLIC_P521_MAGIC == 0x35534345);

// ---- flags and numbers ----

static_assert(NCRYPT_NO_KEY_VALIDATION == 0x8);
static_assert(NCRYPT_MACHINE_KEY_FLAG == 0x20);
static_assert(NCRYPT_SILENT_FLAG == 0x40);
static_assert(NCRYPT_OVERWRITE_KEY_FLAG == 0x80);
static_assert(NCRYPT_WRITE_KEY_TO_LEGACY_STORE_FLAG == 0x200);
static_assert(NCRYPT_DO_NOT_FINALIZE_FLAG == 0x400);
static_assert(NCRYPT_EXPORT_LEGACY_FLAG == 0x800);
static_assert(NCRYPT_PERSIST_ONLY_FLAG == 0x40000000);
static_assert(NCRYPT_PERSIST_FLAG == 0x80000000);
static_assert(NCRYPT_ALLOW_DECRYPT_FLAG == 1 && NCRYPT_ALLOW_SIGNING_FLAG == 2);
static_assert(NCRYPT_ALLOW_KEY_AGREEMENT_FLAG == 4 && NCRYPT_ALLOW_ALL_USAGES == 0x00FFFFFF);
static_assert(NCRYPT_IMPL_HARDWARE_FLAG == 1);
static_assert(BCRYPT_BLOCK_PADDING == 1);
static_assert(NCRYPT_NO_PADDING_FLAG == 1 && NCRYPT_PAD_PKCS1_FLAG == 2 && NCRYPT_PAD_OAEP_FLAG == 4);
static_assert(BCRYPT_PAD_PKCS1 == 0x2 && BCRYPT_PAD_PSS == 0x8);
static_assert(NCRYPT_ASYMMETRIC_ENCRYPTION_INTERFACE == 3);
static_assert(NCRYPT_SECRET_AGREEMENT_INTERFACE == 4);
static_assert(NCRYPT_SIGNATURE_INTERFACE == 5);
static_assert(NCRYPT_ASYMMETRIC_ENCRYPTION_OPERATION == 0x4);
static_assert(NCRYPT_SECRET_AGREEMENT_OPERATION == 0x8);
static_assert(NCRYPT_SIGNATURE_OPERATION == 0x10);
static_assert(NCRYPTBUFFER_PKCS_ALG_OID == 41 && NCRYPTBUFFER_PKCS_ALG_PARAM == 42);
static_assert(NCRYPTBUFFER_PKCS_KEY_NAME == 45 && NCRYPTBUFFER_PKCS_SECRET == 46);
static_assert(NCRYPTBUFFER_CERT_BLOB == 47 && NCRYPTBUFFER_VERSION == 0);
static_assert(CRYPT_STRING_BASE64 == 1 && CRYPT_STRING_BASE64_ANY == 6);
static_assert(CRYPT_STRING_NOCRLF == 0x40000000 && CRYPT_STRING_NOCR == 0x80000000);
static_assert(CRYPTPROTECT_UI_FORBIDDEN == 1 && CRYPTPROTECT_LOCAL_MACHINE == 4);
static_assert(X509_ASN_ENCODING == 1 && PKCS_7_ASN_ENCODING == 0x10000 && AT_SIGNATURE == 2);
static_assert(CERT_V1 == 0 && CERT_V3 == 2);
static_assert(CERT_SIMPLE_NAME_STR == 1 && CERT_X500_NAME_STR == 3);
static_assert(CERT_NAME_STR_ENABLE_UTF8_UNICODE_FLAG == 0x40000);
static_assert(CERT_KEY_PROV_INFO_PROP_ID == 2 && CERT_SHA1_HASH_PROP_ID == 3);
static_assert(CERT_SYSTEM_STORE_CURRENT_USER == 0x10000 && CERT_SYSTEM_STORE_LOCAL_MACHINE == 0x20000);
static_assert(CERT_STORE_READONLY_FLAG == 0x8000);
static_assert(CERT_CLOSE_STORE_FORCE_FLAG == 1);
static_assert(CERT_STORE_ADD_USE_EXISTING == 2);
static_assert(REG_SZ == 1 && REG_EXPAND_SZ == 2 && REG_BINARY == 3 && REG_DWORD == 4 && REG_MULTI_SZ == 7);
static_assert(EVENTLOG_SUCCESS == 0 && EVENTLOG_ERROR_TYPE == 1 && EVENTLOG_WARNING_TYPE == 2);
static_assert(DLL_PROCESS_DETACH == 0 && DLL_PROCESS_ATTACH == 1);
static_assert(DLL_THREAD_ATTACH == 2 && DLL_THREAD_DETACH == 3);
static_assert(WAIT_OBJECT_0 == 0 && WAIT_TIMEOUT == 258 && WAIT_FAILED == 0xFFFFFFFF);
static_assert(ComputerNameDnsFullyQualified == 3);
static_assert(HEAP_ZERO_MEMORY == 8);
static_assert(CP_ACP == 0 && CP_UTF8 == 65001);
static_assert(WINHTTP_FLAG_SECURE == 0x00800000 && WINHTTP_QUERY_FLAG_NUMBER == 0x20000000);
static_assert(WINHTTP_QUERY_STATUS_CODE == 19 && WINHTTP_QUERY_RAW_HEADERS_CRLF == 22);
static_assert(WINHTTP_OPTION_SECURITY_FLAGS == 31 && WINHTTP_OPTION_SERVER_CERT_CONTEXT == 78);
static_assert(SECURITY_FLAG_IGNORE_UNKNOWN_CA == 0x100 && SECURITY_FLAG_IGNORE_CERT_CN_INVALID == 0x1000);
static_assert(SECURITY_FLAG_IGNORE_CERT_DATE_INVALID == 0x2000);
static_assert(ICU_DECODE == 0x10000000);

// ---- status codes ----

static_assert(ERROR_SUCCESS == 0 && ERROR_FILE_NOT_FOUND == 2 && ERROR_INSUFFICIENT_BUFFER == 122);
static_assert(DRIVE_FIXED == 3 && DRIVE_REMOTE == 4);
static_assert(KEY_QUERY_VALUE == 1 && KEY_SET_VALUE == 2);
static_assert(ERROR_INVALID_DATA == 13 && ERROR_MORE_DATA == 234 && ERROR_NO_MORE_ITEMS == 259 && ERROR_BADDB == 1009);
static_assert(ERROR_NOT_SUPPORTED == 50 && ERROR_CALL_NOT_IMPLEMENTED == 120 && ERROR_RM_NOT_ACTIVE == 6801);
static_assert(ERROR_WINHTTP_TIMEOUT == 12002 && ERROR_WINHTTP_NAME_NOT_RESOLVED == 12007);
static_assert(ERROR_WINHTTP_CANNOT_CONNECT == 12029 && ERROR_WINHTTP_CONNECTION_ERROR == 12030);
static_assert(ERROR_WINHTTP_SECURE_FAILURE == 12175);
static_assert(AsCode(NTE_BAD_KEY) == 0x80090003);
static_assert(AsCode(NTE_BAD_DATA) == 0x80090005);
static_assert(AsCode(NTE_BAD_SIGNATURE) == 0x80090006);
static_assert(AsCode(NTE_BAD_FLAGS) == 0x80090009);
static_assert(AsCode(NTE_BAD_KEY_STATE) == 0x8009000B);
static_assert(AsCode(NTE_NO_MEMORY) == 0x8009000E);
static_assert(AsCode(NTE_EXISTS) == 0x8009000F);
static_assert(AsCode(NTE_PERM) == 0x80090010);
static_assert(AsCode(NTE_NOT_FOUND) == 0x80090011);
static_assert(AsCode(NTE_FAIL) == 0x80090020);
static_assert(AsCode(NTE_INVALID_HANDLE) == 0x80090026);
static_assert(AsCode(NTE_INVALID_PARAMETER) == 0x80090027);
static_assert(AsCode(NTE_BUFFER_TOO_SMALL) == 0x80090028);
static_assert(AsCode(NTE_NOT_SUPPORTED) == 0x80090029);
static_assert(AsCode(NTE_NO_MORE_ITEMS) == 0x8009002A);
static_assert(AsCode(NTE_INTERNAL_ERROR) == 0x8009002D);
static_assert(AsCode(SEC_E_LOGON_DENIED) == 0x8009030C);
static_assert(AsCode(NTE_BAD_ALGID) == 0x80090008 && AsCode(NTE_BAD_KEYSET) == 0x80090016);
static_assert(AsCode(E_ACCESSDENIED) == 0x80070005 && AsCode(E_INVALIDARG) == 0x80070057);
static_assert(AsCode(CRYPT_E_NOT_FOUND) == 0x80092004);
static_assert(AsCode(CRYPT_E_INVALID_PRINTABLE_STRING) == 0x80092021);
static_assert(AsCode(CRYPT_E_INVALID_IA5_STRING) == 0x80092022);
static_assert(AsCode(CRYPT_E_INVALID_X500_STRING) == 0x80092023);
static_assert(AsCode(CRYPT_E_ASN1_EOD) == 0x80093102 && AsCode(CRYPT_E_ASN1_CORRUPT) == 0x80093103);
static_assert(AsCode(CRYPT_E_ASN1_LARGE) == 0x80093104 && AsCode(CRYPT_E_ASN1_BADTAG) == 0x8009310B);

// ---- the router's configuration ----

static_assert(sizeof(CRYPT_INTERFACE_REG) == BySize(24, 16) &&
              offsetof(CRYPT_INTERFACE_REG, rgpszFunctions) == BySize(16, 12));
static_assert(sizeof(CRYPT_IMAGE_REG) == BySize(24, 12) && offsetof(CRYPT_IMAGE_REG, rgpInterfaces) == BySize(16, 8));
static_assert(sizeof(CRYPT_PROVIDER_REG) == BySize(32, 16) && offsetof(CRYPT_PROVIDER_REG, pUM) == BySize(16, 8));
static_assert(sizeof(CRYPT_CONTEXT_FUNCTION_PROVIDERS) == BySize(16, 8));
static_assert(CRYPT_UM == 1 && CRYPT_OVERWRITE == 1 && CRYPT_LOCAL == 1 && CRYPT_PRIORITY_BOTTOM == 0xFFFFFFFF);
static_assert(IsText(CRYPT_DEFAULT_CONTEXT, TEXT("Default")) &&
              IsText(NCRYPT_KEY_STORAGE_ALGORITHM, TEXT("KEY_STORAGE")));

// ---- names ----

static_assert(IsText(NCRYPT_RSA_ALGORITHM, TEXT("RSA")));
static_assert(IsText(BCRYPT_SHA1_ALGORITHM, TEXT("SHA1")));
static_assert(IsText(BCRYPT_SHA256_ALGORITHM, TEXT("SHA256")));
static_assert(IsText(BCRYPT_SHA384_ALGORITHM, TEXT("SHA384")));
static_assert(IsText(BCRYPT_SHA512_ALGORITHM, TEXT("SHA512")));
static_assert(IsText(BCRYPT_PUBLIC_KEY_BLOB, TEXT("PUBLICBLOB")));
static_assert(IsText(BCRYPT_PRIVATE_KEY_BLOB, TEXT("PRIVATEBLOB")));
static_assert(IsText(BCRYPT_RSAPUBLIC_BLOB, TEXT("RSAPUBLICBLOB")));
static_assert(IsText(BCRYPT_RSAPRIVATE_BLOB, TEXT("RSAPRIVATEBLOB")));
static_assert(IsText(BCRYPT_RSAFULLPRIVATE_BLOB, TEXT("RSAFULLPRIVATEBLOB")));
static_assert(IsText(BCRYPT_ECCPUBLIC_BLOB, TEXT("ECCPUBLICBLOB")));
static_assert(IsText(NCRYPT_PKCS7_ENVELOPE_BLOB, TEXT("PKCS7_ENVELOPE")));
static_assert(IsText(NCRYPT_PKCS8_PRIVATE_KEY_BLOB, TEXT("PKCS8_PRIVATEKEY")));
static_assert(IsText(MS_KEY_STORAGE_PROVIDER, TEXT("Microsoft Software Key Storage Provider")));
static_assert(IsText(NCRYPT_NAME_PROPERTY, TEXT("Name")));
static_assert(IsText(NCRYPT_UNIQUE_NAME_PROPERTY, TEXT("Unique Name")));
static_assert(IsText(NCRYPT_ALGORITHM_PROPERTY, TEXT("Algorithm Name")));
static_assert(IsText(NCRYPT_ALGORITHM_GROUP_PROPERTY, TEXT("Algorithm Group")));
static_assert(IsText(NCRYPT_LENGTH_PROPERTY, TEXT("Length")));
static_assert(IsText(NCRYPT_LENGTHS_PROPERTY, TEXT("Lengths")));
static_assert(IsText(NCRYPT_BLOCK_LENGTH_PROPERTY, TEXT("Block Length")));
static_assert(IsText(NCRYPT_UI_POLICY_PROPERTY, TEXT("UI Policy")));
static_assert(IsText(NCRYPT_EXPORT_POLICY_PROPERTY, TEXT("Export Policy")));
static_assert(IsText(NCRYPT_WINDOW_HANDLE_PROPERTY, TEXT("HWND Handle")));
static_assert(IsText(NCRYPT_USE_CONTEXT_PROPERTY, TEXT("Use Context")));
static_assert(IsText(NCRYPT_IMPL_TYPE_PROPERTY, TEXT("Impl Type")));
static_assert(IsText(NCRYPT_KEY_USAGE_PROPERTY, TEXT("Key Usage")));
static_assert(IsText(NCRYPT_KEY_TYPE_PROPERTY, TEXT("Key Type")));
static_assert(IsText(NCRYPT_VERSION_PROPERTY, TEXT("Version")));
static_assert(IsText(NCRYPT_SECURITY_DESCR_SUPPORT_PROPERTY, TEXT("Security Descr Support")));
static_assert(IsText(NCRYPT_SECURITY_DESCR_PROPERTY, TEXT("Security Descr")));
static_assert(IsText(NCRYPT_MAX_NAME_LENGTH_PROPERTY, TEXT("Max Name Length")));
static_assert(IsText(NCRYPT_CERTIFICATE_PROPERTY, TEXT("SmartCardKeyCertificate")));

// ---- private keys and enveloped messages ----

static_assert(sizeof(CRYPT_ATTRIBUTES) == BySize(16, 8) && offsetof(CRYPT_ATTRIBUTES, rgAttr) == BySize(8, 4));
static_assert(sizeof(CRYPT_PRIVATE_KEY_INFO) == BySize(56, 28));
static_assert(offsetof(CRYPT_PRIVATE_KEY_INFO, Algorithm) == BySize(8, 4));
static_assert(offsetof(CRYPT_PRIVATE_KEY_INFO, PrivateKey) == BySize(32, 16));
static_assert(offsetof(CRYPT_PRIVATE_KEY_INFO, pAttributes) == BySize(48, 24));
static_assert(sizeof(CRYPT_ENCRYPTED_PRIVATE_KEY_INFO) == BySize(40, 20));
static_assert(offsetof(CRYPT_ENCRYPTED_PRIVATE_KEY_INFO, EncryptedPrivateKey) == BySize(24, 12));
static_assert(sizeof(BLOBHEADER) == 8 && offsetof(BLOBHEADER, aiKeyAlg) == 4);
static_assert(sizeof(RSAPUBKEY) == 12 && offsetof(RSAPUBKEY, bitlen) == 4 && offsetof(RSAPUBKEY, pubexp) == 8);
static_assert(sizeof(CRYPT_DECODE_PARA) == BySize(24, 12) && offsetof(CRYPT_DECODE_PARA, pfnAlloc) == BySize(8, 4));
static_assert(sizeof(CRYPT_DECRYPT_MESSAGE_PARA) == BySize(32, 20));
static_assert(offsetof(CRYPT_DECRYPT_MESSAGE_PARA, rghCertStore) == BySize(16, 12));
static_assert(offsetof(CRYPT_DECRYPT_MESSAGE_PARA, dwFlags) == BySize(24, 16));
static_assert(PRIVATEKEYBLOB == 7 && CUR_BLOB_VERSION == 2 && CALG_RSA_KEYX == 0xA400);
static_assert(CRYPT_DECODE_NOCOPY_FLAG == 1 && CRYPT_DECODE_ALLOC_FLAG == 0x8000);
static_assert(CERT_STORE_CREATE_NEW_FLAG == 0x2000 && CRYPT_MACHINE_KEYSET == 0x20);
static_assert(CRYPT_MESSAGE_SILENT_KEYSET_FLAG == 0x40);
static_assert(BCRYPT_ALG_HANDLE_HMAC_FLAG == 8);
static_assert(std::string_view(szOID_RSA_RSA) == "1.2.840.113549.1.1.1");
static_assert(std::string_view(szOID_KEY_USAGE) == "2.5.29.15");
static_assert(AsCode(CRYPT_E_BAD_ENCODE) == 0x80092002 && AsCode(CRYPT_E_NO_DECRYPT_CERT) == 0x8009200C);
static_assert(IsText(BCRYPT_AES_ALGORITHM, TEXT("AES")) && IsText(BCRYPT_3DES_ALGORITHM, TEXT("3DES")));
static_assert(IsText(BCRYPT_OBJECT_LENGTH, TEXT("ObjectLength")));
static_assert(IsText(BCRYPT_CHAINING_MODE, TEXT("ChainingMode")));
static_assert(IsText(BCRYPT_CHAIN_MODE_CBC, TEXT("ChainingModeCBC")));
static_assert(IsText(BCRYPT_INITIALIZATION_VECTOR, TEXT("IV")));

}  // namespace
