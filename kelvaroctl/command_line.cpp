// The only source that includes CLI11, which is slow to compile.
#include "kelvaroctl/command_line.h"

#include <CLI/CLI.hpp>
#include <algorithm>

namespace kelvaroctl {

static const char kExitCodes[] =
    "Exit codes:\n"
    "  0  done\n"
    "  1  the answer is no: a bad signature, a deletion not confirmed\n"
    "  2  the command line, or a file that it names, is not valid\n"
    "  3  the settings, the registry or the module cannot be used\n"
    "  4  sign-in was refused\n"
    "  5  the key or certificate was not found\n"
    "  6  the vault or the network refused\n"
    "  7  internal error\n"
    "With --json, the answer or the error ({\"error\":{...}}) is one object on standard output.";

static void AddSharedOptions(CLI::App& app, Tool* tool)
{
    app.add_flag("--json", tool->json, "print a JSON object, for programs");
    app.add_option(
           "--module", tool->modulePath,
           "the provider's module, before the command; default: the one beside this program, or the installed one")
        ->type_name("PATH");
    app.add_option("--via", tool->via,
                   "module: load the provider's module (default); ncrypt: use the key storage router of Windows")
        ->check(CLI::IsMember({"module", "ncrypt"}))
        ->type_name("WAY");
    CLI::Option* const machine = app.add_flag("--machine", "machine keys and the machine's settings (default)");
    app.add_flag("--user", tool->user, "the caller's own keys and settings")->excludes(machine);
    app.set_version_flag("--version", std::string("kelvaroctl " KELVARO_VERSION));
}

namespace {
struct ArgumentAdder {
    CLI::App& app;
    const Argument& argument;

    CLI::Option* operator()(bool* target) const { return app.add_flag(argument.name, *target, argument.help); }
    CLI::Option* operator()(std::vector<std::string>* target) const
    {
        return app.add_option(argument.name, *target, argument.help)->allow_extra_args(false);
    }
    template <typename T>
    CLI::Option* operator()(T* target) const
    {
        return app.add_option(argument.name, *target, argument.help);
    }
};
}  // namespace

static void AddArgument(CLI::App& app, const Argument& argument)
{
    CLI::Option* const option = std::visit(ArgumentAdder{app, argument}, argument.target);
    option->required(argument.required);
    if (argument.typeName)
        option->type_name(argument.typeName);
    if (!argument.choices.empty())
        option->transform(CLI::IsMember(argument.choices, CLI::ignore_case));
    if (argument.delimiter)
        option->delimiter(argument.delimiter);
}

// chosen: receives the action of the command that is named.
static void AddCommand(CLI::App& parent, const Command& command, std::function<Answer(Tool&)>* chosen)
{
    CLI::App* const app = parent.add_subcommand(command.name, command.help);
    if (!command.footer.empty())
        app->footer(command.footer);
    for (const Argument& argument : command.arguments)
        AddArgument(*app, argument);
    for (const Command& member : command.commands)
        AddCommand(*app, member, chosen);
    if (command.action)
        app->callback([chosen, action = command.action] { *chosen = action; });
    else
        app->require_subcommand(1);
}

// A script or installer may append a name that comes from elsewhere. Such a name must not choose the code that is
// loaded, so --module counts only before the command.
static void Parse(CLI::App& app, const std::vector<std::string>& arguments)
{
    const CLI::Option* const module = app.get_option("--module");
    size_t before = 0;
    for (CLI::App* const command : app.get_subcommands({}))
        command->preparse_callback([&before, module](size_t) { before = module->count(); });
    // The parser takes its arguments from the back.
    app.parse(std::vector<std::string>(arguments.rbegin(), arguments.rend()));
    if (module->count() != before)
        throw CLI::ArgumentMismatch("--module goes before the command");
}

// The part of the command that was recognised: "kelvaroctl keys list".
static std::string CommandOf(const CLI::App& app)
{
    const std::vector<CLI::App*> parsed = app.get_subcommands();
    return app.get_name() + (parsed.empty() ? "" : " " + CommandOf(*parsed.front()));
}

std::function<Answer(Tool&)> ParseCommandLine(const std::vector<std::string>& arguments,
                                              const std::vector<Command>& commands, Tool* tool)
{
    CLI::App app("Administers the Zandrel Key Storage Provider for Key Vault", "kelvaroctl");
    app.footer(kExitCodes);
    app.require_subcommand(1);
    // Shared options, all but --module, may also follow the command.
    app.fallthrough();
    AddSharedOptions(app, tool);
    std::function<Answer(Tool&)> chosen;
    for (const Command& command : commands)
        AddCommand(app, command, &chosen);
    try {
        Parse(app, arguments);
    } catch (const CLI::Success& wanted) {
        app.exit(wanted);
        return nullptr;
    } catch (const CLI::ParseError& error) {
        tool->json = std::find(arguments.begin(), arguments.end(), "--json") != arguments.end();
        const std::vector<std::string> unknown = app.remaining(true);
        const std::string problem = unknown.empty() ? error.what() : "unknown command or option: '" + unknown[0] + "'";
        throw UsageFailure(problem + "; see " + CommandOf(app) + " --help");
    }
    return chosen;
}

}  // namespace kelvaroctl
