#include "kelvaroctl/command.h"

namespace kelvaroctl {

bool IsOption(const Argument& argument)
{
    return argument.name[0] == '-';
}

bool IsFlag(const Argument& argument)
{
    return std::holds_alternative<bool Arguments::*>(argument.target);
}

static void AddNamed(const std::string& before, const std::vector<Command>& commands, std::vector<NamedCommand>* all)
{
    for (const Command& command : commands) {
        all->push_back({before + command.name, &command});
        AddNamed(before + command.name + " ", command.commands, all);
    }
}

std::vector<NamedCommand> Flatten(const std::vector<Command>& commands)
{
    std::vector<NamedCommand> all;
    AddNamed("", commands, &all);
    return all;
}

}  // namespace kelvaroctl
