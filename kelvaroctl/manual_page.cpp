#include "kelvaroctl/command.h"

namespace kelvaroctl {

namespace {

// Escapes what the formatter would read as a request or an escape.
std::string Roff(const std::string& text)
{
    std::string safe;
    bool atStart = true;
    for (const char ch : text) {
        if (atStart && (ch == '.' || ch == '\''))
            safe += "\\&";
        if (ch == '\\')
            safe += "\\e";
        else if (ch == '-')
            safe += "\\-";
        else
            safe += ch;
        atStart = ch == '\n';
    }
    return safe;
}

// "--format pem|cng|jwk"
std::string Usage(const Argument& argument)
{
    std::string text = argument.name;
    if (!IsOption(argument) || IsFlag(argument))
        return text;
    std::string choices;
    for (const std::string& choice : argument.choices)
        choices += (choices.empty() ? "" : "|") + choice;
    return text + " " + (!choices.empty() ? choices : argument.typeName ? argument.typeName : "TEXT");
}

std::string Entry(const std::string& term, const std::string& text)
{
    return ".TP\n\\fB" + Roff(term) + "\\fR\n" + Roff(text) + "\n";
}

std::string Entries(const std::vector<Argument>& arguments)
{
    std::string text;
    for (const Argument& argument : arguments)
        text += Entry(Usage(argument), argument.help);
    return text;
}

std::string CommandText(const NamedCommand& named)
{
    const Command& command = *named.command;
    std::string synopsis = named.name;
    for (const Argument& argument : command.arguments)
        synopsis += argument.required ? " " + Usage(argument) : " [" + Usage(argument) + "]";
    std::string text = ".SS " + Roff(synopsis) + "\n" + Roff(command.help) + "\n" + Entries(command.arguments);
    if (!command.footer.empty())
        text += ".PP\n.nf\n" + Roff(command.footer) + "\n.fi\n";
    return text;
}

}  // namespace

std::string ManualPage()
{
    std::string page = ".TH KELVAROCTL 1 \"\" \"Kelvaro " KELVARO_VERSION
                       "\" \"Kelvaro\"\n.ad l\n.nh\n"
                       ".SH NAME\nkelvaroctl \\- administers the Zandrel Key Storage Provider for Key Vault\n"
                       ".SH SYNOPSIS\n\\fBkelvaroctl\\fR [\\fIOPTION\\fR]... \\fICOMMAND\\fR [\\fIARGUMENT\\fR]...\n"
                       ".SH OPTIONS\nOptions may precede or follow the command; \\-\\-module must precede it.\n";
    page += Entries(SharedOptions()) + Entry("--version", "print the version") +
            Entry("--help", "print the help of a command");
    page += ".SH COMMANDS\n";
    const std::vector<Command> commands = AllCommands();
    for (const NamedCommand& named : Flatten(commands))
        page += CommandText(named);
    page += ".SH EXIT STATUS\n";
    int code = 0;
    for (const char* const meaning : kExitMeanings)
        page += Entry(std::to_string(code++), meaning);
    return page + ".SH SEE ALSO\nThe documents in /usr/share/doc/kelvaro, starting with index.md.\n";
}

}  // namespace kelvaroctl
