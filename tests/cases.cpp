// Runs the cases in the text files of tests/cases. docs/testing.md explains their form. A line that
// the runner does not understand ends it with the line's place and what was expected, before any
// case runs.
//
//     unit_tests [--update] [GoogleTest's options]
//
// With --update, the expected lines of a case that fails are replaced by its actual lines.
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <sstream>
#include <utility>

#include "tests/words.h"

namespace
{

/// A command with what is expected of it, or the words of an "only".
struct Row {
    int first, last;      ///< its lines in the file
    std::string command;  ///< with its '+', '$' or "only"
    std::string expected; ///< with a line break before each line
};

using Block = std::vector<Row>; ///< ends at an empty line; has a board of its own
using Definitions = std::vector<std::pair<std::string, std::string>>; ///< "<name>" and its lines

struct Case {
    std::string name;
    int line;
    std::vector<Block> blocks; ///< each after its background
};

struct CaseFile {
    std::string path;
    Definitions definitions; ///< later ones may contain earlier ones
    std::deque<Case> cases;
    std::map<int, std::string> lines; ///< by number
};

constexpr size_t kWidth = 100;
bool g_update;

std::string Replaced(std::string text, const std::string &from, const std::string &to)
{
    for (size_t at = 0; (at = text.find(from, at)) != std::string::npos; at += to.size()) {
        text.replace(at, from.size(), to);
    }
    return text;
}

/// Replaces the names of definitions by their lines.
std::string Expanded(std::string lines, const Definitions &definitions)
{
    for (const auto &[name, defined] : definitions) {
        lines = Replaced(lines, "\n" + name, defined);
    }
    const size_t name = lines.find("\n<");
    if (name != std::string::npos) {
        const size_t end = lines.find('\n', name + 1);
        throw WrongLine("this file defines no '" + lines.substr(name + 1, end - name - 1) + "'");
    }
    return lines;
}

/// Replaces lines by the names of their definitions.
std::string Folded(std::string lines, const Definitions &definitions)
{
    for (auto own = definitions.rbegin(); own != definitions.rend(); ++own) {
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
        text += (is_alone ? "\n  > " : fits ? " | " : "\n  | ") + line;
        width = is_alone ? kWidth : (fits ? width + 3 : 4) + line.size();
    }
    return text;
}

class CaseTest : public testing::Test
{
public:
    CaseTest(CaseFile &file, const Case &own) : file_(file), case_(own) {}

    void TestBody() override
    {
        for (const Block &block : case_.blocks) {
            FakeBoard board;
            Words only;
            for (const Row &row : block) {
                try {
                    const Words words = WordsIn(row.command);
                    words[0] == "only" ? only.assign(words.begin() + 1, words.end())
                                       : RunRow(row, words, board, only);
                } catch (const WrongLine &wrong) {
                    ADD_FAILURE_AT(file_.path.c_str(), row.first) << row.command << "\n"
                                                                  << wrong.what();
                    break;
                }
            }
            if (!board.Missed().empty()) {
                ADD_FAILURE_AT(file_.path.c_str(), block.back().first)
                    << "this block does not make the " << board.Missed();
            }
        }
    }

private:
    void RunRow(const Row &row, const Words &words, FakeBoard &board, const Words &only)
    {
        RunLine(board, words);
        const std::string effects = board.TakeTranscript(only);
        const std::string found = effects.empty() && Runs(words) ? "\nnothing" : effects;
        if (Matches(Expanded(row.expected, file_.definitions), found)) {
            return;
        }
        if (!g_update) {
            ADD_FAILURE_AT(file_.path.c_str(), row.first)
                << row.command << "\nexpected:" << row.expected << "\n\nfound:" << found;
            return;
        }
        for (int number = row.first; number <= row.last; ++number) {
            file_.lines.erase(number);
        }
        file_.lines[row.first] = Laid(row.command, Folded(found, file_.definitions));
    }

    CaseFile &file_;
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

/// Reads a file of cases, line by line. Throws WrongLine.
class Reader
{
public:
    explicit Reader(CaseFile &file) : file_(file) {}

    /// The last line that is not empty.
    [[nodiscard]] int place() const { return last_; }

    void ReadLine(int number, const std::string &line)
    {
        last_ = line.empty() ? last_ : number;
        if (line.empty()) {
            EndBlock();
        } else if (line.starts_with("# ")) {
            AddComment(number, line);
        } else if (line.starts_with("define ") || line.starts_with("background: ")) {
            const std::string kind = line.substr(0, line.find_first_of(": "));
            const bool goes_on = kind == "define" && kind_ == kind;
            Expect(goes_on || (block_.empty() && comment_.empty() && kind_.empty()),
                   "an empty line before it");
            if (goes_on) {
                Define();
            }
            kind_ = kind;
            kind == "define" ? AddRow(number, line) : void();
        } else if (line.starts_with("+ ") || line.starts_with("$ ") || line.starts_with("only ")) {
            Expect(kind_ != "define", "an empty line behind a definition");
            AddRow(number, line);
        } else if (line.starts_with("  | ") || line.starts_with("  > ")) {
            Expect(TakesEffects(), "an effect only behind a '$'"); // also that there is a row
            block_.back().last = number;
            AddEffects("\n" + (line[2] == '|' ? Lines(line.substr(4)) : line.substr(4)));
        } else if (line.starts_with("    ")) {
            Expect(!block_.empty(), "a line to go on with");
            block_.back().last = number;
            (block_.back().expected.empty() ? block_.back().command : block_.back().expected) +=
                Lines(line.substr(3));
        } else {
            throw WrongLine(
                "a line begins with '# ', '+ ', '$ ', 'only ', 'define ', 'background: ', "
                "'  | ', '  > ' or four blanks");
        }
    }

    /// At an empty line and at the end of the file.
    void EndBlock()
    {
        const bool runs = !block_.empty() && RunsIn(block_.back());
        if (kind_ == "define") {
            Define();
        } else if (kind_ == "background") {
            Expect(!block_.empty() && std::ranges::none_of(block_, RunsIn),
                   "a background runs nothing");
            background_ = block_;
        } else if (!block_.empty() || !comment_.empty()) {
            Expect(runs, "the last row of a block runs something, or a background says so");
            AddToCase();
        }
        block_.clear();
        comment_.clear();
        kind_.clear();
    }

private:
    static void Expect(bool is_so, const char *text)
    {
        if (!is_so) {
            throw WrongLine(std::string{"expected: "} + text);
        }
    }

    static std::string Lines(const std::string &text) { return Replaced(text, " | ", "\n"); }

    static bool RunsIn(const Row &row)
    {
        return !row.command.starts_with("only ") && Runs(WordsIn(row.command));
    }

    bool TakesEffects() const
    {
        return !block_.empty() && (kind_ == "define" || RunsIn(block_.back()));
    }

    void AddComment(int number, const std::string &line)
    {
        Expect(block_.empty() && kind_.empty(), "an empty line before a comment");
        comment_line_ = comment_.empty() ? number : comment_line_;
        comment_ += comment_.empty() ? line : " "; // the first line names the case
    }

    void AddRow(int number, const std::string &line)
    {
        const std::string text = Lines(line);
        const size_t end = std::min(text.find('\n'), text.size());
        block_.push_back({number, number, text.substr(0, end), ""});
        if (kind_ != "define") {
            Expect(WordsIn(block_.back().command).size() > 1, "a word behind it");
        }
        AddEffects(text.substr(end));
    }

    void AddEffects(const std::string &lines)
    {
        std::string &expected = block_.back().expected;
        expected += lines;
        Expect(expected.empty() || TakesEffects(), "an effect only behind a '$'");
        Expect(Replaced(expected, "\\*", "").size() + 2 >= expected.size(), "one '\\*' at most");
        Expanded(lines, file_.definitions); // throws if there is no such definition
    }

    /// Ends a definition. The definitions below may contain it.
    void Define()
    {
        const auto &[first, last, command, lines] = block_.back();
        const std::string name = "<" + command.substr(7) + ">";
        Expect(!lines.empty(), "the effects that it stands for");
        file_.definitions.emplace_back(name, Expanded(lines, file_.definitions));
        block_.clear();
    }

    /// A block with a comment begins a case. Other blocks belong to the case above.
    void AddToCase()
    {
        if (!comment_.empty()) {
            const std::string name = NameOf(comment_.substr(0, comment_.find_last_not_of(' ') + 1));
            Expect(std::ranges::none_of(file_.cases,
                                        [&](const auto &own) { return own.name == name; }),
                   "another name than that of a case above");
            file_.cases.push_back({name, comment_line_, {}});
        }
        Expect(!file_.cases.empty(), "a comment that names the case");
        block_.insert(block_.begin(), background_.begin(), background_.end());
        file_.cases.back().blocks.push_back(block_);
    }

    CaseFile &file_;
    int last_ = 0;
    Block background_; ///< of the blocks below it
    Block block_;
    std::string kind_; ///< of the block: "define", "background" or ""
    std::string comment_;
    int comment_line_ = 0;
};

/// Prints what is wrong with the file. Returns whether nothing is.
bool ReadCases(CaseFile &file)
{
    std::ifstream stream{file.path};
    Reader reader{file};
    try {
        int number = 0;
        for (std::string line; std::getline(stream, line);) {
            file.lines[++number] = line;
            reader.ReadLine(number, line);
        }
        reader.EndBlock();
        return true;
    } catch (const WrongLine &wrong) {
        std::cerr << file.path << ":" << reader.place() << ": " << file.lines[reader.place()]
                  << "\n"
                  << wrong.what() << "\n";
        return false;
    }
}

} // namespace

int main(int argc, char **argv)
{
    testing::InitGoogleTest(&argc, argv);
    g_update = argc > 1 && std::string{argv[1]} == "--update";
    std::vector<std::filesystem::path> paths{std::filesystem::directory_iterator{CASES}, {}};
    std::ranges::sort(paths);
    static std::deque<CaseFile> files; // the tests refer to them
    bool is_right = true;
    for (const std::filesystem::path &path : paths) {
        files.push_back({path, {}, {}, {}});
        is_right = ReadCases(files.back()) && is_right;
    }
    if (!is_right) {
        return 2;
    }
    for (CaseFile &file : files) {
        const std::string suite = NameOf(std::filesystem::path{file.path}.stem());
        for (const Case &own : file.cases) {
            const auto make = [&file, &own] { return new CaseTest{file, own}; };
            testing::RegisterTest(suite.c_str(), own.name.c_str(), nullptr, nullptr,
                                  file.path.c_str(), own.line, make);
        }
    }
    const int result = RUN_ALL_TESTS();
    for (const CaseFile &file : files) {
        std::ofstream stream;
        g_update ? stream.open(file.path) : void();
        for (const auto &[number, text] : file.lines) {
            stream << text << "\n";
        }
    }
    return result;
}
