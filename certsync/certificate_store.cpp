#include "certsync/certificate_store.h"

HCERTSTORE OpenPersonalStore(bool isMachine, StoreAccess access)
{
    const DWORD location = isMachine ? CERT_SYSTEM_STORE_LOCAL_MACHINE : CERT_SYSTEM_STORE_CURRENT_USER;
    const DWORD readOnly = access == StoreAccess::Read ? CERT_STORE_READONLY_FLAG : 0;
    return CertOpenStore(CERT_STORE_PROV_SYSTEM_W, 0, 0, location | readOnly, TEXT("My"));
}
