#include "kelvaroctl/log_table.h"

#include <algorithm>
#include <charconv>
#include <vector>

#include "kelvaroctl/text.h"

namespace kelvaroctl {

namespace {

// The cells of "| a | b |", trimmed; none if the line isn't a row.
std::vector<std::string_view> CellsOf(std::string_view line)
{
    if (line.substr(0, 2) != "| ")
        return {};
    std::vector<std::string_view> cells = Split(line, "|");
    cells.erase(cells.begin());
    cells.pop_back();
    for (std::string_view& cell : cells) {
        cell.remove_prefix(std::min(cell.find_first_not_of(' '), cell.size()));
        cell = cell.substr(0, cell.find_last_not_of(' ') + 1);
    }
    return cells;
}

// Calls visit(cells) with each row until it returns true.
template <typename Visit>
void FindRow(Visit visit)
{
    for (const std::string_view line : Split(kLogDocument, "\n")) {
        if (visit(CellsOf(line)))
            return;
    }
}

// Without backquotes, and with links as their text.
std::string Plain(std::string_view markdown)
{
    std::string text;
    for (size_t at = 0; at < markdown.size(); ++at) {
        const size_t end = markdown.substr(at, 2) == "](" ? markdown.find(')', at) : std::string_view::npos;
        if (end != std::string_view::npos)
            at = end;
        else if (markdown[at] != '`' && markdown[at] != '[')
            text += markdown[at];
    }
    return text;
}

// The length of the longest of the cell's texts, each between backquotes, that `text` begins with.
size_t MatchLength(std::string_view cell, std::string_view text)
{
    size_t longest = 0;
    const std::vector<std::string_view> parts = Split(cell, "`");
    for (size_t at = 1; at + 1 < parts.size(); at += 2) {
        const std::string_view known = parts[at];
        if (text.substr(0, known.size()) == known && (text.size() == known.size() || text[known.size()] == ' '))
            longest = std::max(longest, known.size());
    }
    return longest;
}

std::optional<DWORD> HexAt(std::string_view text)
{
    uint32_t number = 0;
    if (text.substr(0, 2) != "0x" ||
        std::from_chars(text.data() + 2, text.data() + text.size(), number, 16).ptr == text.data() + 2)
        return std::nullopt;
    return number;
}

}  // namespace

std::optional<LogExplanation> ExplainLogText(std::string_view text, DWORD level)
{
    const std::string wanted = std::to_string(level);
    std::optional<LogExplanation> found;
    size_t longest = 0;
    FindRow([&](const std::vector<std::string_view>& cells) {
        const size_t length = cells.size() == 4 && cells[1] == wanted ? MatchLength(cells[0], text) : 0;
        if (length > longest) {
            longest = length;
            found = LogExplanation{Plain(cells[2]), Plain(cells[3])};
        }
        return false;
    });
    return found;
}

std::optional<LogExplanation> ExplainLogNumber(DWORD number)
{
    std::optional<LogExplanation> found;
    FindRow([&](const std::vector<std::string_view>& cells) {
        const std::string_view numbers = cells.size() == 3 ? cells[0] : "";
        for (size_t at = numbers.find("0x"); at != std::string_view::npos; at = numbers.find("0x", at + 1)) {
            if (HexAt(numbers.substr(at)) == number)
                found = LogExplanation{Plain(cells[1]), Plain(cells[2])};
        }
        return found.has_value();
    });
    return found;
}

std::optional<DWORD> NumberOfLogText(std::string_view text)
{
    const size_t blank = text.rfind(' ');
    return blank == std::string_view::npos ? std::nullopt : HexAt(text.substr(blank + 1));
}

}  // namespace kelvaroctl
