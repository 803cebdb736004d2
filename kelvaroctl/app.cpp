#include "kelvaroctl/app.h"

#include <algorithm>
#include <iostream>

#include "kelvaroctl/command.h"
#include "kelvaroctl/commands.h"
#include "kelvaroctl/module_log.h"
#include "kelvaroctl/terminal.h"

namespace kelvaroctl {

// What a report adds to a failure's message.
namespace {
struct Context {
    std::string vault;  // empty unless the network failed
    std::string signIn;
    std::optional<LogPlace> log;  // if the module failed and the settings can be read
    std::vector<LogLine> lines;
    bool doctorHelps = false;
};
}  // namespace

static bool IsOfTheNetwork(const Failure& failure)
{
    return failure.exit() == ExitCode::SignIn || failure.exit() == ExitCode::Refused ||
           (failure.exit() == ExitCode::NotFound && failure.status);
}

static Context ContextOf(const Failure& failure, const Tool& tool)
{
    Context context;
    const bool network = IsOfTheNetwork(failure);
    if (network && tool.openedProvider()) {
        context.vault = tool.VaultWords();
        context.signIn = tool.SignInWords();
    }
    if (network || failure.status)
        context.log = IfPossible(FindLog);
    context.lines = tool.LogLines();
    context.doctorHelps = network || failure.exit() == ExitCode::Configuration || failure.exit() == ExitCode::Internal;
    return context;
}

// Where to read more. Below level 10 no line says why an open failed.
static std::string Advice(const Failure& failure, const Context& context)
{
    constexpr DWORD kEverything = 10;
    const bool more = context.log->level && context.log->level < kEverything && !SayWhy(context.lines, failure.status);
    return LogAdvice(*context.log) + (more ? "; it says why at level 10: kelvaroctl config set LoggingLevel 10" : "");
}

static Json ErrorObject(const Failure& failure, const Context& context)
{
    Json error = {{"code", failure.code()}, {"exit", static_cast<int>(failure.exit())}, {"message", failure.what()}};
    if (failure.status) {
        error["status"] = HexNumber(static_cast<DWORD>(*failure.status));
        error["operation"] = failure.operation;
    }
    if (!context.vault.empty()) {
        error["vault"] = context.vault;
        error["signIn"] = context.signIn;
    }
    if (context.log) {
        error["log"] = {
            {"level", context.log->level}, {"file", context.log->file}, {"advice", Advice(failure, context)}};
    }
    if (!context.lines.empty())
        error["lines"] = LogLinesObject(context.lines);
    return error;
}

static std::string ErrorText(const Failure& failure, const Context& context, bool user)
{
    std::string text = "kelvaroctl: " + Printable(failure.what()) + "\n";
    if (!context.vault.empty())
        text += "vault: " + Printable(context.vault) + ", signing in by " + context.signIn + "\n";
    if (!context.lines.empty())
        text += "the module logged:\n" + LogLinesText(context.lines, failure.status);
    if (context.log)
        text += Printable(Advice(failure, context)) + "\n";
    if (context.doctorHelps)
        text += std::string("Run `kelvaroctl doctor") + (user ? " --user`\n" : "`\n");
    return text;
}

static void PrintObject(Json object, const Tool& tool)
{
    if (!tool.warnings().empty())
        object["warnings"] = tool.warnings();
    std::cout << object.dump(2, ' ', false, Json::error_handler_t::replace) << std::endl;
}

static int Report(const Failure& failure, const Tool& tool)
{
    const Context context = ContextOf(failure, tool);
    if (tool.json) {
        Json object = failure.partial ? *failure.partial : Json::object();
        object["error"] = ErrorObject(failure, context);
        PrintObject(std::move(object), tool);
    } else {
        std::cout << failure.partialText << std::flush;
        std::cerr << ErrorText(failure, context, tool.user) << std::flush;
    }
    return static_cast<int>(failure.exit());
}

// The exit code, unless the answer couldn't be written.
static int AfterOutput(ExitCode exit)
{
    if (std::cout.flush())
        return static_cast<int>(exit);
    std::cerr << "kelvaroctl: cannot write the answer to standard output" << std::endl;
    return static_cast<int>(ExitCode::Internal);
}

static int Print(const Answer& answer, const Tool& tool)
{
    if (tool.json)
        PrintObject(answer.object, tool);
    else
        std::cout << answer.text;
    return AfterOutput(answer.exit);
}

static int Run(const std::vector<std::string>& arguments, Tool& tool)
{
    Action action = nullptr;
    try {
        action = ParseCommandLine(arguments, &tool);
    } catch (const Failure&) {
        tool.json = std::find(arguments.begin(), arguments.end(), "--json") != arguments.end();
        throw;
    }
    return action ? Print(action(tool), tool) : AfterOutput(ExitCode::Ok);  // the parser has printed the help
}

int RunTool(const std::vector<std::string>& arguments)
{
    CleanUpWhenInterrupted(ErrorOutputIsTerminal());
    Tool tool;
    try {
        return Run(arguments, tool);
    } catch (const Failure& failure) {
        return Report(failure, tool);
    } catch (const std::bad_alloc&) {
        return Report(InternalFailure("out of memory"), tool);
    } catch (const std::exception& error) {
        return Report(InternalFailure(error.what()), tool);
    }
}

}  // namespace kelvaroctl
