#include "kelvaroctl/command.h"

#include "kelvaroctl/tool.h"

namespace kelvaroctl {

bool IsOption(const Argument& argument)
{
    return argument.name[0] == '-';
}

bool IsFlag(const Argument& argument)
{
    return std::holds_alternative<bool*>(argument.target);
}

std::vector<Argument> SharedOptions(Tool* tool)
{
    return {{"--json", &tool->json, "print a JSON object, for programs"},
            {"--module", &tool->modulePath,
             "the provider's module, before the command; default: the one beside this program, or the installed one",
             "PATH"},
            {"--via",
             &tool->via,
             "module: load the provider's module (default); ncrypt: use the key storage router of Windows",
             "WAY",
             false,
             {"module", "ncrypt"}},
            {"--machine", &tool->machine, "machine keys and the machine's settings (default)"},
            {"--user", &tool->user, "the caller's own keys and settings"}};
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
