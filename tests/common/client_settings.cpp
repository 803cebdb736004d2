#include "tests/common/client_settings.h"

#include "tests/common/simulator.h"

void WriteClientSettings(TestRoot& root)
{
    for (const HKEY hive : {HKEY_LOCAL_MACHINE, HKEY_CURRENT_USER}) {
        root.SetText(hive, "KeyVault", Simulator::kVault);
        root.SetNumber(hive, "AuthenticationType", 2);
        root.SetText(hive, "TenantId", Simulator::kTenant);
        root.SetText(hive, "ClientId", Simulator::kClientId);
        root.SetText(hive, "ClientSecret", Simulator::kClientSecret);
        root.SetNumber(hive, "CertificatesOrKeys", 1);
    }
}
