// All commands of the tool.
#pragma once

#include "kelvaroctl/command.h"

namespace kelvaroctl {

Command ConfigCommand();
Command ProviderCommand();
Command AlgorithmsCommand();
Command KeysCommand();
Command PropertiesCommand();
Command CertsCommand();
Command SignCommand();
Command VerifyCommand();
Command EncryptCommand();
Command DecryptCommand();

// Members of "keys".
Command RequestCommand();
Command CreateCommand();
Command DeleteCommand();
Command ImportCommand();

// Members of "certs".
Command PublishCommand();
Command SyncCommand();

}  // namespace kelvaroctl
