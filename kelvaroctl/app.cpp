#include "kelvaroctl/app.h"

#include <iostream>

#include "kelvaroctl/command_line.h"
#include "kelvaroctl/commands.h"
#include "kelvaroctl/log_place.h"

namespace kelvaroctl {

static Json LogObject(const LogPlace& log)
{
    return {{"level", log.level}, {"file", log.file}, {"advice", LogAdvice(log)}};
}

// The log, if the module failed and the settings can be read.
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

static int Run(const std::vector<std::string>& arguments, Tool& tool)
{
    const std::vector<Command> commands = {ConfigCommand(),     ProviderCommand(), AlgorithmsCommand(), KeysCommand(),
                                           PropertiesCommand(), CertsCommand(),    SignCommand(),       VerifyCommand(),
                                           EncryptCommand(),    DecryptCommand()};
    const std::function<Answer(Tool&)> action = ParseCommandLine(arguments, commands, &tool);
    return action ? Print(action(tool), tool) : static_cast<int>(ExitCode::Ok);
}

int RunTool(const std::vector<std::string>& arguments)
{
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
