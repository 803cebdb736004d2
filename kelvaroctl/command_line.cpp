// The only source that includes CLI11, which is slow to compile.
#include "kelvaroctl/command_line.h"

#include "kelvaroctl/text.h"

#include <CLI/CLI.hpp>
#include <algorithm>

namespace kelvaroctl {

static std::string ExitCodes()
{
    std::string text = "Exit codes:\n";
    int code = 0;
    for (const char* const meaning : kExitMeanings)
        text += "  " + std::to_string(code++) + "  " + meaning + "\n";
    return text + "With --json, the answer or the error ({\"error\":{...}}) is one object on standard output.";
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

static CLI::Option* AddArgument(CLI::App& app, const Argument& argument)
{
    CLI::Option* const option = std::visit(ArgumentAdder{app, argument}, argument.target);
    option->required(argument.required);
    if (argument.typeName)
        option->type_name(argument.typeName);
    if (!argument.choices.empty())
        option->transform(CLI::IsMember(argument.choices, CLI::ignore_case));
    if (argument.delimiter)
        option->delimiter(argument.delimiter);
    return option;
}

static void AddSharedOptions(CLI::App& app, const std::vector<Argument>& shared)
{
    for (const Argument& option : shared)
        AddArgument(app, option);
    app.get_option("--user")->excludes("--machine");
    app.set_version_flag("--version", std::string("kelvaroctl " KELVARO_VERSION));
}

// chosen: receives the action of the command that is named.
static void AddCommand(CLI::App& parent, const Command& command, std::function<Answer(Tool&)>* chosen)
{
    CLI::App* const app = parent.add_subcommand(command.name, command.help);
    if (!command.footer.empty())
        app->footer(command.footer);
    for (const Argument& argument : command.arguments)
        AddArgument(*app, argument);
    for (const Argument& argument : command.internal)
        AddArgument(*app, argument)->group("");
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

// The part of the command line that was recognised.
struct Recognised {
    std::string name = "kelvaroctl";                   // "kelvaroctl keys list"
    const std::vector<Command>* members = nullptr;     // of the group
    const std::vector<Argument>* arguments = nullptr;  // of the command
};

static Recognised Recognise(const CLI::App& app, const std::vector<Command>& commands)
{
    static const std::vector<Argument> kNone;
    Recognised found;
    found.members = &commands;
    found.arguments = &kNone;
    const CLI::App* at = &app;
    while (!at->get_subcommands().empty()) {
        at = at->get_subcommands().front();
        const auto member = std::find_if(found.members->begin(), found.members->end(),
                                         [&](const Command& command) { return at->get_name() == command.name; });
        found.name += " " + at->get_name();
        found.arguments = &member->arguments;
        found.members = &member->commands;
    }
    return found;
}

static std::string UnknownWord(const std::string& word, const Recognised& found, const std::vector<Argument>& shared)
{
    std::vector<std::string> known;
    known.reserve(found.members->size());
    for (const Command& command : *found.members)
        known.emplace_back(command.name);
    for (const std::vector<Argument>& arguments : {*found.arguments, shared}) {
        for (const Argument& argument : arguments)
            known.emplace_back(argument.name);
    }
    return "unknown command or option: '" + word + "'" + DidYouMean(word, known);
}

std::function<Answer(Tool&)> ParseCommandLine(const std::vector<std::string>& arguments,
                                              const std::vector<Command>& commands, const std::vector<Argument>& shared)
{
    CLI::App app("Administers the Zandrel Key Storage Provider for Key Vault", "kelvaroctl");
    app.footer(ExitCodes());
    app.require_subcommand(1);
    // Shared options, all but --module, may also follow the command.
    app.fallthrough();
    AddSharedOptions(app, shared);
    std::function<Answer(Tool&)> chosen;
    for (const Command& command : commands)
        AddCommand(app, command, &chosen);
    try {
        Parse(app, arguments);
    } catch (const CLI::Success& wanted) {
        app.exit(wanted);
        return nullptr;
    } catch (const CLI::ParseError& error) {
        const std::vector<std::string> unknown = app.remaining(true);
        const Recognised found = Recognise(app, commands);
        throw UsageFailure((unknown.empty() ? error.what() : UnknownWord(unknown[0], found, shared)) + "; see " +
                           found.name + " --help");
    }
    return chosen;
}

}  // namespace kelvaroctl
