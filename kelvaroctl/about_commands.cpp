// Commands about the program itself.
#include "kelvaroctl/commands.h"

namespace kelvaroctl {

static Answer TextAnswer(const std::string& text)
{
    return {{{"text", text}}, text};
}

Answer PrintCompletion(Tool& tool)
{
    return TextAnswer(tool.shell == "bash" ? BashCompletion() : ZshCompletion());
}

Answer PrintManual(Tool&)
{
    return TextAnswer(ManualPage());
}

// The tool's version, and the module's file if it can be loaded.
Answer ShowVersion(Tool& tool)
{
    Answer answer = {{{"version", KELVARO_VERSION}}, "kelvaroctl " KELVARO_VERSION "\n"};
    try {
        const std::string module = tool.OpenProvider()->place();
        answer.object["module"] = module;
        answer.text += "module " + Printable(module) + "\n";
    } catch (const Failure& failure) {
        answer.object["module"] = nullptr;
        tool.Warn(failure.what());
    }
    return answer;
}

}  // namespace kelvaroctl
