// Runs the cases in the text files of tests/cases. docs/testing.md explains their form.
//
//     unit_tests [--update] [GoogleTest's options]
//
// With --update, the expected lines of a case that fails are replaced by its actual lines.
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <sstream>

#include "tests/words.h"

namespace
{

/// A command, a comment or the like, with what is expected of it.
struct Row {
    int first, last;  ///< its lines in the file
    std::string text; ///< each expected line begins with a line break
};

using Block = std::vector<Row>; ///< ends at an empty line; has a board of its own

struct Case {
    std::string file, name;
    int line;
    std::vector<Block> blocks; ///< each after its background
};

constexpr size_t kWidth = 100;
bool g_update;
std::vector<std::pair<std::string, std::string>> g_definitions; ///< "<name>" and its lines
std::map<std::string, std::map<int, std::string>> g_lines;      ///< of the files, by number

std::string Replaced(std::string text, const std::string &from, const std::string &to)
{
    for (size_t at = 0; (at = text.find(from, at)) != std::string::npos; at += to.size()) {
        text.replace(at, from.size(), to);
    }
    return text;
}

/// Replaces the names of definitions by their lines.
std::string Expanded(std::string lines)
{
    for (const auto &[name, defined] : g_definitions) {
        lines = Replaced(lines, "\n" + name, defined);
    }
    return lines;
}

/// Replaces lines by the names of their definitions. Later definitions may contain earlier ones.
std::string Folded(std::string lines)
{
    for (auto own = g_definitions.rbegin(); own != g_definitions.rend(); ++own) {
        lines = Replaced(lines, own->second, "\n" + own->first);
    }
    return lines;
}

/// "\*" in the expected text matches any text.
bool Matches(const std::string &expected, const std::string &found)
{
    const size_t star = expected.find("\\*");
    return star == std::string::npos ? found == expected
                                     : found.starts_with(expected.substr(0, star)) &&
                                           found.ends_with(expected.substr(star + 2));
}

/// The command and its actual lines as they stand in a file, whose lines have a limited width.
std::string Laid(const std::string &command, const std::string &found)
{
    std::string text = command;
    size_t width = command.size();
    std::istringstream lines{found};
    lines.get(); // the first line break
    for (std::string line; std::getline(lines, line);) {
        const bool is_alone = line.size() > kWidth - 4 || line.find(" | ") != std::string::npos;
        const bool fits = !is_alone && width + 3 + line.size() <= kWidth;
        text += (is_alone ? "\n" : fits ? " | " : "\n  | ") + line;
        width = is_alone ? kWidth : (fits ? width + 3 : 4) + line.size();
    }
    return text;
}

void RunRow(const Case &own, const Row &row, FakeBoard &board, const Words &only)
{
    const std::string command = row.text.substr(0, row.text.find('\n'));
    const std::string expected = Expanded(row.text.substr(command.size()));
    RunLine(board, WordsIn(command));
    const std::string found = board.TakeTranscript(only);
    if (Matches(expected, found)) {
        return;
    }
    if (!g_update) {
        ADD_FAILURE_AT(own.file.c_str(), row.first)
            << command << "\nexpected:" << expected << "\n\nfound:" << found;
        return;
    }
    for (int number = row.first; number <= row.last; ++number) {
        g_lines[own.file].erase(number);
    }
    g_lines[own.file][row.first] = Laid(command, Folded(found));
}

class CaseTest : public testing::Test
{
public:
    explicit CaseTest(const Case &own) : case_(own) {}

    void TestBody() override
    {
        for (const Block &block : case_.blocks) {
            FakeBoard board;
            Words only;
            for (const Row &row : block) {
                if (row.text.starts_with("only ")) {
                    only = WordsIn(row.text.substr(5));
                } else if (row.text[0] != '#') {
                    RunRow(case_, row, board, only);
                }
            }
            if (!board.FailedAll()) {
                ADD_FAILURE_AT(case_.file.c_str(), block.back().first)
                    << "this block does not make a call that was to fail";
            }
        }
    }

private:
    const Case &case_;
};

/// "A pin's level." is APinsLevel.
std::string NameOf(const std::string &comment)
{
    std::string name;
    char before = ' ';
    for (const char c : comment) {
        if (std::isalnum(c) != 0) {
            const bool begins = before != '\'' && std::isalnum(before) == 0;
            name += begins ? static_cast<char>(std::toupper(c)) : c;
        }
        before = c;
    }
    return name;
}

bool Runs(const Row &row)
{
    return row.text.starts_with("$ ") ||
           (row.text.starts_with("+ ") && row.text.find(" $ ") != std::string::npos);
}

/// Adds a block to the cases of its file. A block that begins with a comment begins a case. A block
/// that runs nothing is the background of all following blocks, up to the next such block.
void AddBlock(const std::string &path, Block block, Block &background, std::deque<Case> &cases)
{
    if (block.empty()) {
        return;
    }
    const std::string first = block[0].text;
    if (first.starts_with("define ")) {
        for (const auto &[line, last, text] : block) {
            const size_t end = text.find('\n');
            g_definitions.emplace_back("<" + text.substr(7, end - 7) + ">",
                                       Expanded(text.substr(end)));
        }
    } else if (std::ranges::none_of(block, Runs)) {
        background = block;
    } else {
        if (first.starts_with('#') || cases.empty() || cases.back().file != path) {
            cases.push_back({path, NameOf(first), block[0].first, {}});
        }
        block.insert(block.begin(), background.begin(), background.end());
        cases.back().blocks.push_back(block);
    }
}

/// Adds a line to the block: a new row, or more of what the last row expects.
void AddLine(int number, const std::string &line, Block &block)
{
    const auto begins = [&line](const char *word) { return line.starts_with(word); };
    if (block.empty() ||
        std::ranges::any_of(std::array{"#", "+ ", "$ ", "only ", "define "}, begins)) {
        block.push_back({number, number, Replaced(line, " | ", "\n")});
        return;
    }
    block.back().last = number;
    block.back().text += begins("  | ")   ? Replaced(line.substr(1), " | ", "\n")
                         : begins("    ") ? line.substr(3)
                                          : "\n" + line;
}

void ReadCases(const std::string &path, std::deque<Case> &cases)
{
    std::ifstream file{path};
    Block background;
    Block block;
    std::string line;
    for (int number = 1; std::getline(file, line); ++number) {
        g_lines[path][number] = line;
        line.empty() ? AddBlock(path, std::exchange(block, {}), background, cases)
                     : AddLine(number, line, block);
    }
    AddBlock(path, block, background, cases);
}

} // namespace

int main(int argc, char **argv)
{
    testing::InitGoogleTest(&argc, argv);
    g_update = argc > 1 && std::string{argv[1]} == "--update";
    std::vector<std::filesystem::path> files{std::filesystem::directory_iterator{CASES}, {}};
    std::ranges::sort(files);
    static std::deque<Case> cases; // the tests refer to them
    for (const std::filesystem::path &path : files) {
        ReadCases(path, cases);
    }
    for (const Case &own : cases) {
        const std::string suite = NameOf(std::filesystem::path{own.file}.stem());
        testing::RegisterTest(suite.c_str(), own.name.c_str(), nullptr, nullptr, own.file.c_str(),
                              own.line, [&own] { return new CaseTest{own}; });
    }
    const int result = RUN_ALL_TESTS();
    for (const auto &[path, lines] : g_update ? g_lines : decltype(g_lines){}) {
        std::ofstream file{path};
        for (const auto &[number, text] : lines) {
            file << text << "\n";
        }
    }
    return result;
}
