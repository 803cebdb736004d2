// Commands about the program itself.
#include "kelvaroctl/commands.h"
#include "kelvaroctl/shell_texts.h"

namespace kelvaroctl {

using TextMaker = std::string (*)(const std::vector<Command>& commands, const std::vector<Argument>& shared);

static Answer MadeOfCommands(TextMaker make)
{
    Tool options;  // only what the table of shared options points to
    Answer answer;
    answer.text = make(AllCommands(), SharedOptions(&options));
    answer.object["text"] = answer.text;
    return answer;
}

// The tool's version always; the module's if it can be loaded.
static Answer ShowVersion(Tool& tool)
{
    Answer answer;
    answer.object["version"] = KELVARO_VERSION;
    answer.text = "kelvaroctl " KELVARO_VERSION "\n";
    try {
        const std::string module = tool.OpenProvider()->binding().place();
        answer.object["module"] = module;
        answer.text += "module " + Printable(module) + "\n";
    } catch (const Failure& failure) {
        answer.object["module"] = nullptr;
        tool.Warn(failure.what());
    }
    return answer;
}

Command VersionCommand()
{
    return {"version", "the version, and which module is used", {}, ShowVersion};
}

Command CompletionCommand()
{
    const auto shell = std::make_shared<std::string>();
    return {"completion",
            "print the completions for a shell",
            {{"SHELL", shell.get(), "bash or zsh", nullptr, kRequired, {"bash", "zsh"}}},
            [shell](Tool&) { return MadeOfCommands(*shell == "bash" ? BashCompletion : ZshCompletion); }};
}

Command ManualCommand()
{
    return {"manual", "print the manual page, for man", {}, [](Tool&) { return MadeOfCommands(ManualPage); }};
}

}  // namespace kelvaroctl
