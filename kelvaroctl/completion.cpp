#include "kelvaroctl/command.h"

namespace kelvaroctl {

namespace {

struct Candidate {
    std::string word;
    std::string help;
};
using Candidates = std::vector<Candidate>;

// What differs between the shells. The script goes through the words, keeps the longest command name, and then checks
// whether the last word is an option that takes a value.
struct Shell {
    const char* head;
    const char* afterWalk;
    const char* files;  // completes a file name and returns
    const char* tail;
    std::string (*assign)(const Candidates& candidates);  // what the tail offers
};

std::string Quoted(const std::string& text)
{
    std::string quoted = "'";
    for (const char ch : text)
        quoted += ch == '\'' ? "'\\''" : std::string(1, ch);
    return quoted + "'";
}

std::string BashAssign(const Candidates& candidates)
{
    std::string words;
    for (const Candidate& candidate : candidates)
        words += (words.empty() ? "" : " ") + candidate.word;
    return "words=" + Quoted(words);
}

std::string ZshAssign(const Candidates& candidates)
{
    std::string words;
    for (const Candidate& candidate : candidates)
        words += " " + Quoted(candidate.word + ":" + candidate.help);
    return "matches=(" + words + " )";
}

constexpr Shell kBash = {
    "# Completes kelvaroctl in bash. Generated from its table of commands.\n"
    "_kelvaroctl()\n{\n"
    "    local cur=${COMP_WORDS[COMP_CWORD]} prev=${COMP_WORDS[COMP_CWORD - 1]} name= words= files= i\n    "
    "COMPREPLY=()\n"
    "    for ((i = 1; i < COMP_CWORD; i++)); do\n"
    "        case \"$name ${COMP_WORDS[i]}\" in\n        ",
    ") name=${name:+$name }${COMP_WORDS[i]} ;;\n        esac\n    done\n    case \"$name:$prev\" in\n",
    "COMPREPLY=($(compgen -f -- \"$cur\")); return",
    "    esac\n"
    "    COMPREPLY=($(compgen -W \"$words\" -- \"$cur\"))\n"
    "    [ -z \"$files\" ] || COMPREPLY+=($(compgen -f -- \"$cur\"))\n"
    "}\ncomplete -o filenames -F _kelvaroctl kelvaroctl\n",
    BashAssign};

constexpr Shell kZsh = {
    "#compdef kelvaroctl\n"
    "# Completes kelvaroctl in zsh. Generated from its table of commands.\n"
    "local name= files= word\nlocal -a matches\n"
    "for word in ${words[2,CURRENT - 1]}; do\n    case \"$name $word\" in\n    ",
    ") name=${name:+$name }$word ;;\n    esac\ndone\ncase \"$name:${words[CURRENT - 1]}\" in\n", "_files; return",
    "esac\n_describe -t commands kelvaroctl matches\n[[ -z $files ]] || _files\n", ZshAssign};

bool IsFile(const Argument& argument)
{
    const std::string type = IsOption(argument) ? (argument.typeName ? argument.typeName : "") : argument.name;
    return type == "FILE" || type == "PATH";
}

Candidates ValuesOf(const Argument& argument)
{
    Candidates values;
    for (const std::vector<std::string>& words : {argument.choices, argument.suggestions}) {
        for (const std::string& word : words)
            values.push_back({word, argument.help});
    }
    return values;
}

// The pattern that matches a command's name and the word after it.
std::string Pattern(const std::string& name, const char* separator, const std::string& word)
{
    return "\"" + name + separator + word + "\"";
}

std::string ValueCases(const Shell& shell, const std::string& name, const std::vector<Argument>& arguments)
{
    std::string text;
    for (const Argument& argument : arguments) {
        if (!IsOption(argument) || IsFlag(argument))
            continue;
        const Candidates values = ValuesOf(argument);
        text += "    " + (name == "*" ? "*" + Pattern("", ":", argument.name) : Pattern(name, ":", argument.name)) +
                ") " +
                (IsFile(argument) ? shell.files
                 : values.empty() ? "return"
                                  : shell.assign(values)) +
                " ;;\n";
    }
    return text;
}

// Members, options and the values of positional arguments.
std::string CommandCase(const Shell& shell, const std::string& name, const Command& command,
                        const std::vector<Argument>& shared)
{
    Candidates candidates;
    bool takesFile = false;
    candidates.reserve(command.commands.size());
    for (const Command& member : command.commands)
        candidates.push_back({member.name, member.help});
    for (const std::vector<Argument>& arguments : {command.arguments, shared}) {
        for (const Argument& argument : arguments) {
            const Candidates values =
                IsOption(argument) ? Candidates{{argument.name, argument.help}} : ValuesOf(argument);
            candidates.insert(candidates.end(), values.begin(), values.end());
            takesFile = takesFile || (!IsOption(argument) && IsFile(argument));
        }
    }
    candidates.push_back({"--help", "print the help"});
    return "    \"" + name + ":\"*) " + shell.assign(candidates) + (takesFile ? "; files=1" : "") + " ;;\n";
}

std::string Script(const Shell& shell)
{
    const std::vector<Argument> shared = SharedOptions();
    const Command program = {"", "", {}, nullptr, AllCommands()};
    std::string walk;
    std::string values = ValueCases(shell, "*", shared);
    std::string members = CommandCase(shell, "", program, shared);
    for (const NamedCommand& named : Flatten(program.commands)) {
        const size_t blank = named.name.find(' ');
        walk += (walk.empty() ? "" : " | ") +
                (blank == std::string::npos ? Pattern("", " ", named.name) : "\"" + named.name + "\"");
        values += ValueCases(shell, named.name, named.command->arguments);
        members += CommandCase(shell, named.name, *named.command, shared);
    }
    return shell.head + walk + shell.afterWalk + values + members + shell.tail;
}

}  // namespace

std::string BashCompletion()
{
    return Script(kBash);
}

std::string ZshCompletion()
{
    return Script(kZsh);
}

}  // namespace kelvaroctl
