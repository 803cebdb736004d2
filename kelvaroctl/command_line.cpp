// The only source that includes CLI11, which is slow to compile.
#include <CLI/CLI.hpp>
#include <algorithm>

#include "kelvaroctl/command.h"
#include "kelvaroctl/text.h"

namespace kelvaroctl {

static std::string ExitCodes()
{
    std::string text = "Exit codes:\n";
    int code = 0;
    for (const char* const meaning : kExitMeanings)
        text += "  " + std::to_string(code++) + "  " + meaning + "\n";
    return text + "With --json, the answer or the error ({\"error\":{...}}) is one object on standard output.";
}

// to: the record that the arguments' values go to.
static CLI::Option* AddArgument(CLI::App& app, const Argument& argument, Arguments* to)
{
    const auto add = [&](auto member) {
        auto& value = to->*member;
        if constexpr (std::is_same_v<decltype(value), bool&>)
            return app.add_flag(argument.name, value, argument.help);
        else
            return app.add_option(argument.name, value, argument.help)->allow_extra_args(false);
    };
    CLI::Option* const option = std::visit(add, argument.target);
    option->required(argument.required);
    if (argument.typeName)
        option->type_name(argument.typeName);
    if (!argument.choices.empty())
        option->transform(CLI::IsMember(argument.choices, CLI::ignore_case));
    if (argument.delimiter)
        option->delimiter(argument.delimiter);
    return option;
}

// What the parser fills in.
struct Parsed {
    Arguments* arguments;
    Action action = nullptr;  // of the command that is named
};

static void AddCommand(CLI::App& parent, const Command& command, Parsed* parsed)
{
    CLI::App* const app = parent.add_subcommand(command.name, command.help);
    if (!command.footer.empty())
        app->footer(command.footer);  // else the parent's
    for (const Argument& argument : command.arguments)
        AddArgument(*app, argument, parsed->arguments);
    for (const Argument& argument : command.internal)
        AddArgument(*app, argument, parsed->arguments)->group("");
    for (const Command& member : command.commands)
        AddCommand(*app, member, parsed);
    if (command.action)
        app->callback([parsed, action = command.action] { parsed->action = action; });
    else
        app->require_subcommand(1);
}

// A script or installer may append a name from an untrusted source. That name must not choose the code that is loaded,
// so --module is accepted only before the command.
static void Parse(CLI::App& app, const std::vector<std::string>& words)
{
    const CLI::Option* const module = app.get_option("--module");
    size_t before = 0;
    for (CLI::App* const command : app.get_subcommands({}))
        command->preparse_callback([&before, module](size_t) { before = module->count(); });
    // The parser expects its arguments in reverse order.
    app.parse(std::vector<std::string>(words.rbegin(), words.rend()));
    if (module->count() != before)
        throw CLI::ArgumentMismatch("--module goes before the command");
}

// The failure for a command line that isn't understood: what is unknown in it, and whose help to read.
static Failure NotUnderstood(const CLI::App& app, const CLI::ParseError& error, const Command& program)
{
    // The part that was recognised.
    std::string name = program.name;
    const Command* found = &program;
    for (const CLI::App* at = &app; !at->get_subcommands().empty();) {
        at = at->get_subcommands().front();
        name += " " + at->get_name();
        found = &*std::find_if(found->commands.begin(), found->commands.end(),
                               [&](const Command& command) { return at->get_name() == command.name; });
    }
    const std::vector<std::string> unknown = app.remaining(true);
    if (unknown.empty())
        return UsageFailure(std::string(error.what()) + "; see " + name + " --help");
    std::vector<std::string> known;
    for (const Command& command : found->commands)
        known.emplace_back(command.name);
    for (const std::vector<Argument>& arguments : {found->arguments, program.arguments}) {
        for (const Argument& argument : arguments)
            known.emplace_back(argument.name);
    }
    return UsageFailure("unknown command or option: '" + unknown[0] + "'" + DidYouMean(unknown[0], known) + "; see " +
                        name + " --help");
}

Action ParseCommandLine(const std::vector<std::string>& words, Arguments* arguments)
{
    const Command program = {"kelvaroctl", "Administers the Zandrel Key Storage Provider for Key Vault",
                             SharedOptions(), nullptr, AllCommands()};
    Parsed parsed = {arguments};
    CLI::App app(program.help, program.name);
    app.footer(ExitCodes());
    app.require_subcommand(1);
    // Shared options, all but --module, may also follow the command.
    app.fallthrough();
    for (const Argument& option : program.arguments)
        AddArgument(app, option, arguments);
    app.get_option("--user")->excludes("--machine");
    app.set_version_flag("--version", std::string("kelvaroctl " KELVARO_VERSION));
    for (const Command& command : program.commands)
        AddCommand(app, command, &parsed);
    try {
        Parse(app, words);
    } catch (const CLI::Success& wanted) {
        app.exit(wanted);
        return nullptr;
    } catch (const CLI::ParseError& error) {
        throw NotUnderstood(app, error, program);
    }
    return parsed.action;
}

}  // namespace kelvaroctl
