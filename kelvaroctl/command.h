// A command as data: its name, its arguments and what it does. Only command_line.cpp knows the library that parses
// them. Neither needs the JSON library, which is slow to compile too.
#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <variant>
#include <vector>

#include "kelvaroctl/failure.h"

namespace kelvaroctl {

struct Answer;
class Tool;

// Receives the value of an argument. bool: a flag, which takes no value. A list: the option can be repeated.
using ArgumentTarget =
    std::variant<bool*, DWORD*, std::string*, std::optional<std::string>*, std::vector<std::string>*>;

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

struct Command {
    const char* name;
    std::string help;
    std::vector<Argument> arguments = {};
    std::function<Answer(Tool&)> action = {};  // empty for a group of commands; owns what the arguments point to
    std::vector<Command> commands = {};
    std::string footer = {};              // below the help
    std::vector<Argument> internal = {};  // options that the tool gives itself, and that no help shows
};

bool IsOption(const Argument& argument);  // else positional
bool IsFlag(const Argument& argument);

// The options that all commands share.
std::vector<Argument> SharedOptions(Tool* tool);

// The commands under their whole names, "keys list", in the order of the help; groups too.
struct NamedCommand {
    std::string name;
    const Command* command;
};
std::vector<NamedCommand> Flatten(const std::vector<Command>& commands);

}  // namespace kelvaroctl
