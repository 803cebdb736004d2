// All commands of the tool.
#pragma once

#include "kelvaroctl/command.h"
#include "kelvaroctl/tool.h"

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
Command DoctorCommand();
Command VersionCommand();
Command CompletionCommand();
Command ManualCommand();

// The commands above, in the order of the help.
std::vector<Command> AllCommands();

// Members of "keys".
Command RequestCommand();
Command CreateCommand();
Command DeleteCommand();
Command ImportCommand();

// Members of "certs".
Command PublishCommand();
Command SyncCommand();
Command RemoveCommand();

}  // namespace kelvaroctl
