// A command as data: its name, its arguments and what it does; and the help, manual page and completions that are
// generated from it. Only command_line.cpp knows the library that parses arguments. Neither needs the JSON library,
// which is slow to compile too.
#pragma once

#include <optional>
#include <string>
#include <variant>
#include <vector>

#include "kelvaroctl/failure.h"

namespace kelvaroctl {

struct Answer;
class Tool;

// The parsed command line. Each command uses a few of these.
struct Arguments {
    // Options that all commands share.
    bool json = false;
    std::string modulePath;
    std::string via = "module";  // or "ncrypt": the platform's router
    bool machine = false;        // --machine, the default: only `user` is read
    bool user = false;

    std::string name;  // of a key or a setting
    std::optional<std::string> value;
    std::string key;
    std::string algorithm;
    std::string padding;
    std::string format;
    std::string input;
    std::string output;
    std::string signature;
    std::string passwordFile;
    std::string subject;
    std::vector<std::string> altNames;
    std::string prefix;
    std::string thumbprint;
    std::vector<std::string> accounts;
    std::string shell;
    std::string step;
    DWORD length = 0;   // bits
    DWORD seconds = 0;  // for each of doctor's checks
    bool again = false;
    bool anyway = false;
    bool check = false;
    bool der = false;
    bool details = false;
    bool digestHex = false;
    bool force = false;
    bool namesOnly = false;
    bool overwrite = false;
    bool strict = false;
    bool write = false;
    bool yes = false;
};

// Receives the value of an argument. bool: a flag, which takes no value. A list: the option can be repeated.
using ArgumentTarget = std::variant<bool Arguments::*, DWORD Arguments::*, std::string Arguments::*,
                                    std::optional<std::string> Arguments::*, std::vector<std::string> Arguments::*>;

constexpr bool kRequired = true;

struct Argument {
    const char* name;  // "NAME" for a positional argument, "--name" for an option
    ArgumentTarget target;
    std::string help;
    const char* typeName = nullptr;  // of an option's value, in the help
    bool required = false;
    std::vector<std::string> choices = {};      // in any letter case, stored as spelled here; empty: any value
    char delimiter = 0;                         // also separates the values of a list
    std::vector<std::string> suggestions = {};  // that a shell completes, where any value is taken
};

using Action = Answer (*)(Tool& tool);

struct Command {
    const char* name;
    std::string help;
    std::vector<Argument> arguments = {};
    Action action = nullptr;  // NULL for a group of commands
    std::vector<Command> commands = {};
    std::string footer = {};              // below the help
    std::vector<Argument> internal = {};  // options that the tool gives itself, and that no help shows
};

bool IsOption(const Argument& argument);  // else positional
bool IsFlag(const Argument& argument);

// All commands, in the order of the help, and the options that they share.
std::vector<Command> AllCommands();
std::vector<Argument> SharedOptions();

// The commands under their whole names, "keys list", in the order of the help; groups too.
struct NamedCommand {
    std::string name;
    const Command* command;
};
std::vector<NamedCommand> Flatten(const std::vector<Command>& commands);

// words: the command line in UTF-8, without the program's name. Returns the command's action; NULL if the command line
// asked for help or the version, which is printed. Throws a usage failure.
Action ParseCommandLine(const std::vector<std::string>& words, Arguments* arguments);

std::string ManualPage();
std::string BashCompletion();
std::string ZshCompletion();

}  // namespace kelvaroctl
