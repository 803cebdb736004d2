// Tables of tests/data: sections under "[name]" with a row of words in each line, and comments after "#".
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>
#include <string>
#include <vector>

// "Suite.Test" of the test that runs.
inline std::string CurrentTest()
{
    const testing::TestInfo& test = *testing::UnitTest::GetInstance()->current_test_info();
    return std::string(test.test_suite_name()) + "." + test.name();
}

// The lines of a section, without comments and empty lines.
inline std::vector<std::string> SectionLines(const std::string& file, const std::string& section = CurrentTest())
{
    std::ifstream stream(KELVARO_TEST_DATA "/" + file);
    std::vector<std::string> lines;
    bool inside = false;
    for (std::string line; std::getline(stream, line);) {
        if (line[0] == '[')
            inside = line == "[" + section + "]";
        else if (inside && !line.empty() && line[0] != '#')
            lines.push_back(line);
    }
    EXPECT_FALSE(lines.empty()) << file << " has no rows under " << section;
    return lines;
}

// Words between blanks. A word that begins with a quote ends at the next one, may have blanks, and keeps the first
// quote.
inline std::vector<std::string> SplitWords(const std::string& line)
{
    std::vector<std::string> words;
    for (size_t at = line.find_first_not_of(' '); at < line.size(); at = line.find_first_not_of(' ', at)) {
        const bool quoted = line[at] == '\'';
        const size_t end = std::min(line.find(quoted ? '\'' : ' ', at + 1), line.size());
        words.push_back(line.substr(at, end - at));
        at = std::min(end + 1, line.size());
    }
    return words;
}

// The words of each line of the running test's section, up to a bar.
inline std::vector<std::vector<std::string>> SectionRows(const std::string& file)
{
    std::vector<std::vector<std::string>> rows;
    for (const std::string& line : SectionLines(file))
        rows.push_back(SplitWords(line.substr(0, line.find(" | "))));
    return rows;
}

// A row "WORDS | TEXT", whose text may have <0A> for the byte 0x0A.
struct TextRow {
    explicit TextRow(const std::string& line)
        : words(line.substr(0, line.find(" | "))), text(line.substr(words.size() + 3))
    {
        for (size_t at = 0; (at = text.find('<', at)) != std::string::npos; ++at)
            text.replace(at, 4, 1, static_cast<char>(std::stoul(text.substr(at + 1, 2), nullptr, 16)));
    }
    std::string words;
    std::string text;
};
