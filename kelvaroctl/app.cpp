#include "kelvaroctl/app.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <iostream>

#include "kelvaroctl/cert_commands.h"
#include "kelvaroctl/config_commands.h"
#include "kelvaroctl/encrypt_commands.h"
#include "kelvaroctl/key_commands.h"
#include "kelvaroctl/log_place.h"
#include "kelvaroctl/provider_commands.h"
#include "kelvaroctl/sign_commands.h"
#include "kelvaroctl/tool.h"

namespace kelvaroctl {

static const char kExitCodes[] =
    "Exit codes:\n"
    "  0  done\n"
    "  1  the answer is no: a bad signature, a deletion not confirmed\n"
    "  2  the command line, or a file that it names, is wrong\n"
    "  3  the settings, their store or the module cannot be used\n"
    "  4  sign-in was refused\n"
    "  5  there is no such key or certificate\n"
    "  6  the vault or the network refused\n"
    "  7  something inside failed\n"
    "With --json the answer, and an error too ({\"error\":{...}}), is one object on standard output.";

static void AddGlobalOptions(CLI::App& app, Tool& tool)
{
    app.add_flag("--json", tool.json, "answer with a JSON object, for programs");
    app.add_option("--module", tool.modulePath,
                   "the provider's module, named before the command; else the one beside this program or installed")
        ->type_name("PATH");
    app.add_option("--via", tool.via,
                   "module: load the provider's module (default); ncrypt: go through the key storage router of Windows")
        ->check(CLI::IsMember({"module", "ncrypt"}))
        ->type_name("WAY");
    CLI::Option* const machine = app.add_flag("--machine", "machine keys and the machine's settings (default)");
    app.add_flag("--user", tool.user, "the caller's own keys and settings")->excludes(machine);
    app.set_version_flag("--version", std::string("kelvaroctl " KELVARO_VERSION));
}

static Json LogObject(const LogPlace& log)
{
    return {{"level", log.level}, {"file", log.file}, {"advice", LogAdvice(log)}};
}

// Where to read on; nothing when not even the settings can be read.
static std::optional<LogPlace> LogOf(const Failure& failure)
{
    return failure.status ? FindLogIfReadable() : std::nullopt;
}

static Json ErrorObject(const Failure& failure)
{
    Json error = {{"code", failure.code()}, {"exit", static_cast<int>(failure.exit())}, {"message", failure.what()}};
    if (failure.status) {
        error["status"] = HexNumber(static_cast<DWORD>(*failure.status));
        error["operation"] = failure.operation;
    }
    if (const auto log = LogOf(failure))
        error["log"] = LogObject(*log);
    return error;
}

static void PrintObject(Json object, const Tool& tool)
{
    if (!tool.warnings().empty())
        object["warnings"] = tool.warnings();
    std::cout << object.dump(2, ' ', false, Json::error_handler_t::replace) << std::endl;
}

static int Report(const Failure& failure, const Tool& tool)
{
    if (tool.json) {
        Json object = failure.partial.is_object() ? failure.partial : Json::object();
        object["error"] = ErrorObject(failure);
        PrintObject(std::move(object), tool);
    } else {
        std::cout << failure.partialText << std::flush;
        std::cerr << "kelvaroctl: " << Printable(failure.what()) << std::endl;
        if (const auto log = LogOf(failure))
            std::cerr << Printable(LogAdvice(*log)) << std::endl;
    }
    return static_cast<int>(failure.exit());
}

static int Print(const Answer& answer, const Tool& tool)
{
    if (tool.json)
        PrintObject(answer.object, tool);
    else
        std::cout << answer.text << std::flush;
    if (!std::cout) {
        std::cerr << "kelvaroctl: cannot write the answer to standard output" << std::endl;
        return static_cast<int>(ExitCode::Internal);
    }
    return static_cast<int>(answer.exit);
}

static int Run(Tool& tool)
{
    try {
        return Print(tool.action(), tool);
    } catch (const Failure& failure) {
        return Report(failure, tool);
    } catch (const std::bad_alloc&) {
        return Report(InternalFailure("out of memory"), tool);
    } catch (const std::exception& error) {
        return Report(InternalFailure(error.what()), tool);
    }
}

// Parses the command line. A script or installer may pass a name from elsewhere behind the command: such a name must
// not choose the code that is loaded, so --module is taken in front of the command only.
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

// "kelvaroctl keys list": as much of a command as was understood.
static std::string CommandOf(const CLI::App& app)
{
    const std::vector<CLI::App*> parsed = app.get_subcommands();
    return app.get_name() + (parsed.empty() ? "" : " " + CommandOf(*parsed.front()));
}

int RunTool(const std::vector<std::string>& arguments)
{
    Tool tool;
    CLI::App app("Administers the Zandrel Key Storage Provider for Key Vault", "kelvaroctl");
    app.footer(kExitCodes);
    app.require_subcommand(1);
    // Global options may stand behind a command too, all but --module.
    app.fallthrough();
    AddGlobalOptions(app, tool);
    AddConfigCommands(app, tool);
    AddProviderCommands(app, tool);
    AddKeyCommands(app, tool);
    AddCertCommands(app, tool);
    AddSignCommands(app, tool);
    AddEncryptCommands(app, tool);
    try {
        Parse(app, arguments);
    } catch (const CLI::Success& wanted) {
        return app.exit(wanted);
    } catch (const CLI::ParseError& error) {
        tool.json = std::find(arguments.begin(), arguments.end(), "--json") != arguments.end();
        const std::vector<std::string> unknown = app.remaining(true);
        const std::string problem =
            unknown.empty() ? error.what() : "there is no command or option '" + unknown[0] + "'";
        return Report(UsageFailure(problem + "; see " + CommandOf(app) + " --help"), tool);
    }
    return Run(tool);
}

}  // namespace kelvaroctl
