// Runs the cases in the text files of tests/cases. docs/testing.md explains their form.
//
//     unit_tests [--update] [GoogleTest's options]
//
// With --update, the expected lines of each case are replaced by its actual lines.
#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>

#include "tests/words.h"

namespace
{

/// A line of a file, with its continuation lines.
struct Line {
    int number, last;
    std::string text;
};

using Block = std::vector<Line>; ///< ends at an empty line; has a board of its own

struct Case {
    std::string file, name;
    int line;
    std::vector<Block> blocks; ///< each after its background
};

using Definition = std::pair<std::string, Words>; ///< "<name>" and what it stands for

constexpr size_t kWidth = 100;
bool g_update;
std::vector<Definition> g_definitions;
std::map<std::string, std::map<int, std::string>> g_lines; ///< of the files, by number

bool IsExpected(const Line &line)
{
    return line.text.find_first_of("#+$") != 0 && !line.text.starts_with("only ");
}

bool Runs(const Line &line)
{
    return line.text.starts_with('$') ||
           (line.text.starts_with('+') && line.text.find(" $ ") != std::string::npos);
}

/// Replaces names of definitions by their lines. Text after a name continues the last line.
Words Expanded(const Words &lines)
{
    Words all;
    for (const std::string &line : lines) {
        const size_t end = line.find('>') + 1;
        const auto own = std::ranges::find(g_definitions, line.substr(0, end), &Definition::first);
        if (own == g_definitions.end()) {
            all.push_back(line);
        } else {
            all.insert(all.end(), own->second.begin(), own->second.end());
            all.back() += line.substr(end);
        }
    }
    return all;
}

/// Replaces lines by names of definitions. Later definitions may contain earlier ones.
Words Folded(Words lines)
{
    const auto equal = [](const std::string &found, const std::string &defined) {
        return found == defined || found.starts_with(defined + " x");
    };
    for (auto own = g_definitions.rbegin(); own != g_definitions.rend(); ++own) {
        const auto &[name, defined] = *own;
        for (auto at = lines.begin();
             at = std::search(at, lines.end(), defined.begin(), defined.end(), equal),
                  at != lines.end();
             ++at) {
            const auto last = at + static_cast<ptrdiff_t>(defined.size()) - 1;
            *last = name + last->substr(defined.back().size());
            at = lines.erase(at, last);
        }
    }
    return lines;
}

/// An expected line with "\*" matches any text in this place.
bool Matches(const std::string &expected, const std::string &found)
{
    const size_t star = expected.find("\\*");
    return star == std::string::npos ? found == expected
                                     : found.starts_with(expected.substr(0, star)) &&
                                           found.ends_with(expected.substr(star + 2));
}

Words Split(const std::string &text)
{
    Words parts;
    size_t begin = 0;
    for (size_t bar = 0; (bar = text.find(" | ", begin)) != std::string::npos; begin = bar + 3) {
        parts.push_back(text.substr(begin, bar - begin));
    }
    parts.push_back(text.substr(begin));
    return parts;
}

/// Adds the expected lines in a line below a command: one after each bar, or the whole line.
void AddExpected(Words &expected, const std::string &text)
{
    const Words more = text.starts_with("  | ") ? Split(text.substr(4)) : Words{text};
    expected.insert(expected.end(), more.begin(), more.end());
}

/// The command and its actual lines, in lines of limited width.
std::string Laid(const std::string &command, const Words &found)
{
    std::string text = command;
    size_t room = kWidth - std::min(kWidth, command.size());
    for (const std::string &line : found) {
        const bool is_alone = line.size() > kWidth - 4 || line.find(" | ") != std::string::npos;
        const bool fits = !is_alone && line.size() + 3 <= room;
        text += (fits ? " | " : is_alone ? "\n" : "\n  | ") + line;
        room = is_alone ? 0 : (fits ? room - 3 : kWidth - 4) - line.size();
    }
    return text;
}

std::string Indented(const Words &lines)
{
    std::string text;
    for (const std::string &line : lines) {
        text += "\n    " + line;
    }
    return text;
}

/// Runs the line at `at` and moves `at` to its last expected line.
void RunStep(const Case &own, const Block &block, size_t &at, FakeBoard &board, const Words &only)
{
    const int line = block[at].number;
    Words expected = Split(block[at].text);
    const std::string command = expected.front();
    expected.erase(expected.begin());
    for (; at + 1 < block.size() && IsExpected(block[at + 1]); ++at) {
        AddExpected(expected, block[at + 1].text);
    }
    RunLine(board, WordsIn(command));
    const Words found = board.TakeTranscript(only);
    expected = Expanded(expected);
    const bool matches = std::ranges::equal(expected, found, Matches);
    if (g_update && (!matches || std::ranges::equal(expected, found))) {
        for (int number = line; number <= block[at].last; ++number) {
            g_lines[own.file].erase(number);
        }
        g_lines[own.file][line] = Laid(command, Folded(found));
    } else if (!matches) {
        ADD_FAILURE_AT(own.file.c_str(), line)
            << command << "\nexpected:" << Indented(expected) << "\nfound:" << Indented(found);
    }
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
            for (size_t at = 0; at < block.size(); ++at) {
                if (block[at].text.starts_with("only ")) {
                    only = WordsIn(block[at].text.substr(5));
                } else if (block[at].text[0] != '#') {
                    RunStep(case_, block, at, board, only);
                }
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
    bool begins = true;
    for (const char c : comment) {
        if (std::isalnum(static_cast<unsigned char>(c)) != 0) {
            name += begins ? static_cast<char>(std::toupper(c)) : c;
        }
        begins = c == ' ' || c == '-' || c == '_' || (begins && c == '#');
    }
    return name;
}

/// Adds a block to the cases of its file. A block that begins with a comment begins a case. A block
/// that runs nothing is the background of all following blocks, up to the next such block.
void AddBlock(const std::string &path, Block block, Block &background, std::deque<Case> &cases)
{
    if (block.empty()) {
        return;
    }
    const std::string &first = block[0].text;
    if (first.starts_with("define ")) {
        Words lines;
        for (auto line = block.begin() + 1; line != block.end(); ++line) {
            AddExpected(lines, line->text);
        }
        g_definitions.emplace_back("<" + first.substr(7) + ">", Expanded(lines));
    } else if (std::ranges::none_of(block, Runs)) {
        background = block;
    } else {
        if (first.starts_with('#') || cases.empty() || cases.back().file != path) {
            cases.push_back({path, NameOf(first), block[0].number, {}});
        }
        block.insert(block.begin(), background.begin(), background.end());
        cases.back().blocks.push_back(block);
    }
}

void ReadCases(const std::string &path, std::deque<Case> &cases)
{
    std::ifstream file{path};
    Block background, block;
    bool goes_on = false;
    std::string text;
    for (int number = 1; std::getline(file, text); ++number) {
        g_lines[path][number] = text;
        if (text.empty()) {
            AddBlock(path, std::exchange(block, {}), background, cases);
            continue;
        }
        if (!goes_on) {
            block.push_back({number, number, ""});
        }
        goes_on = text.ends_with(" \\");
        block.back().last = number;
        block.back().text += text.substr(0, text.size() - (goes_on ? 1 : 0));
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
