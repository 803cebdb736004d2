// What the commands do, in the order of the help; commands.cpp has their names and arguments.
#pragma once

#include "kelvaroctl/command.h"
#include "kelvaroctl/tool.h"

namespace kelvaroctl {

Answer ShowConfig(Tool& tool);
Answer GetSetting(Tool& tool);
Answer SetSetting(Tool& tool);
Answer ProtectConfig(Tool& tool);
Answer UnsetSetting(Tool& tool);
Answer ImportConfig(Tool& tool);

Answer ShowProvider(Tool& tool);
Answer ListAlgorithms(Tool& tool);

Answer ListKeys(Tool& tool);
Answer ShowKey(Tool& tool);
Answer ExportKey(Tool& tool);
Answer RequestCertificate(Tool& tool);
Answer CreateKey(Tool& tool);
Answer DeleteKey(Tool& tool);
Answer ImportKey(Tool& tool);
Answer ShowProperties(Tool& tool);

Answer ListCertificates(Tool& tool);
Answer InstallCertificateFile(Tool& tool);
Answer PublishCertificate(Tool& tool);
Answer RemoveStoredCertificate(Tool& tool);
Answer SyncCertificates(Tool& tool);

Answer SignFile(Tool& tool);
Answer VerifyFile(Tool& tool);
Answer EncryptFile(Tool& tool);
Answer DecryptFile(Tool& tool);

Answer RunDoctor(Tool& tool);
Answer PrintCompletion(Tool& tool);
Answer PrintManual(Tool& tool);
Answer ShowVersion(Tool& tool);

}  // namespace kelvaroctl
