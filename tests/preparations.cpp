// The preparations of the cases, and the words of their lines.
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <sstream>
#include <utility>

#include "tests/packages.h"
#include "tests/words.h"

namespace
{

using namespace std::string_literals;

/// Parts of the frames that a packet socket hears, by name.
const std::map<std::string, std::string> kFrameParts = {
    {"ethernet", std::string(12, '\0')},
    {"hardware", "\0\1\x08\0\6\4"s},
    {"arp", std::string(12, '\0') + "\x08\6\0\1\x08\0\6\4"s},
    {"request", "\0\1"s},
    {"reply", "\0\2"s},
    {"own", "\2\0\0\0\0\1"s},
    {"other", "\2\0\0\0\0\2"s},
    {"nobody", std::string(6, '\0')},
    {"wanted", "\xc0\0\2\x09"s},
    {"else", "\xc0\0\2\x08"s},
    {"nowhere", std::string(4, '\0')},
};

Node &NodeOf(FakeBoard &board, const Words &words)
{
    Node *node = board.NodeAt(words.at(1));
    if (node == nullptr) {
        throw WrongLine("the board has no '" + words[1] + "'");
    }
    return *node;
}

/// Names of parts, or "=BYTES"; "<28" cuts the frame, "!16" sets the events that poll reports.
Node::Piece FrameOf(const Words &words)
{
    Node::Piece frame;
    for (size_t i = 1; i < words.size(); ++i) {
        const auto part = kFrameParts.find(words[i]);
        if (words[i].starts_with('<')) {
            frame.bytes.resize(NumberAs<size_t>(words[i].substr(1)));
        } else if (words[i].starts_with('!')) {
            frame.events = NumberAs<short>(words[i].substr(1));
        } else if (words[i].starts_with('=')) {
            frame.bytes += words[i].substr(1);
        } else if (part != kFrameParts.end()) {
            frame.bytes += part->second;
        } else {
            throw WrongLine("no part of a frame is called '" + words[i] + "'");
        }
    }
    return frame;
}

/// "N" or "N-M"
std::pair<int, int> RangeOf(const std::string &word)
{
    return {NumberAs<int>(word.substr(0, word.find('-'))),
            NumberAs<int>(word.substr(word.find('-') + 1))};
}

void AddFault(FakeBoard &board, const Words &words)
{
    int error = 0;
    while (words.at(2) != "0" &&
           (strerrorname_np(error) == nullptr || words[2] != strerrorname_np(error))) {
        if (++error > 200) {
            throw WrongLine("no error is called '" + words[2] + "'");
        }
    }
    const auto [first, last] = RangeOf(words.size() > 3 ? words[3] : "1");
    board.Fail({words[1], error, first, last, words.size() > 4 ? words[4] : ""});
}

void AddProcesses(FakeBoard &board, const Words &words)
{
    const auto [first, last] = RangeOf(words.at(1));
    for (int id = first; id <= last; ++id) {
        board.Write("/proc/" + std::to_string(id) + "/cmdline", words.at(2));
    }
}

/// With the parts that differ from those of a package that the board accepts.
void WritePackage(FakeBoard &board, const Words &words)
{
    Words all = WordsIn("marker=3510 version=1 data={K*1000} \"second=second region\" "
                        "\"etc=\\x85\\x19 file system\" "
                        "system=5 architecture=2 type=2 compression=1");
    const size_t known = all.size();
    all.insert(all.end(), words.begin() + 1, words.end());
    std::map<std::string, std::string> parts;
    for (size_t i = 0; i < all.size(); ++i) {
        const size_t end = all[i].find('=');
        if (end == std::string::npos || (i >= known && !parts.contains(all[i].substr(0, end)))) {
            throw WrongLine("'" + all[i] + "' is no PART=VALUE of a package");
        }
        parts[all[i].substr(0, end)] = all[i].substr(end + 1);
    }
    board.Write("/tmp/flash3", BuildPackage(parts));
}

void AddAnswers(FakeBoard &board, const Words &words)
{
    const auto request = static_cast<unsigned long>(NumberIn(words.at(2), 16));
    auto &answers = NodeOf(board, words).answers[request];
    answers.clear();
    for (size_t i = 3; i < words.size(); ++i) {
        std::istringstream record{words[i]};
        answers.emplace_back();
        for (std::string word; std::getline(record, word, ',');) {
            answers.back().push_back(static_cast<uint32_t>(NumberIn(word)));
        }
    }
}

/// The action cannot throw through the program, so it leaves its fault on the board.
void PrepareAt(FakeBoard &board, const Words &words)
{
    const Words later{words.begin() + 3, words.end()};
    board.events.push_back({words.at(1), NumberAs<int>(words.at(2)), [&board, later] {
                                try {
                                    Prepare(board, later);
                                } catch (const WrongLine &wrong) {
                                    board.wrong_event = wrong.what();
                                }
                            }});
}

void SendSignal(FakeBoard &board, const Words &words)
{
    const auto handler = board.signal_handlers.find(NumberAs<int>(words.at(1)));
    if (handler == board.signal_handlers.end()) {
        throw WrongLine("the program does not handle signal " + words[1]);
    }
    handler->second(0);
}

void AddFlash(FakeBoard &board, const std::string &path, const std::string &bytes)
{
    board.nodes[path] = {.kind = Node::kFlash, .bytes = bytes};
}

void Poke(FakeBoard &board, const Words &words)
{
    std::string &bytes = NodeOf(board, words).bytes;
    const auto offset = NumberAs<size_t>(words.at(2));
    if (offset > bytes.size()) {
        throw WrongLine("'" + words[1] + "' ends before that");
    }
    bytes.replace(offset, words.at(3).size(), words[3]);
}

struct Preparation {
    std::string usage; ///< its name and arguments
    void (*prepare)(FakeBoard &board, const Words &words);
};

const Preparation kPreparations[] = {
    {"file PATH TEXT", [](auto &b, auto &w) { b.Write(w[1], w[2]); }},
    {"conf TEXT", [](auto &b, auto &w) { b.Write("/etc/a.conf", w[1]); }},
    {"new PATH TEXT", [](auto &b, auto &w) { b.new_etc[w[1]] = w[2]; }},
    {"model NAME", [](auto &b, auto &w) { b.Write("/etc/cam_model.conf", "cam_model=" + w[1]); }},
    {"package PART=VALUE...", WritePackage},
    {"poke PATH OFFSET BYTES", Poke},
    {"cut PATH SIZE", [](auto &b, auto &w) { NodeOf(b, w).bytes.resize(NumberAs<size_t>(w[2])); }},
    {"no PATH", [](auto &b, auto &w) { b.Remove(w[1]); }},
    {"proc ID|FIRST-LAST TEXT", AddProcesses},
    {"stubborn", [](auto &b, auto &) { b.processes_obey = false; }},
    {"clock MICROSECONDS", [](auto &b, auto &w) { b.clock = NumberIn(w[1]); }},
    {"at LINE N PREPARATION WORD...", PrepareAt},
    {"signal N", SendSignal},
    {"fail CALL ERROR [N|N-M] [PATH]", AddFault},
    {"no-input", [](auto &, auto &) { close(0); }},
    {"driver PATH WORDS [RESULT]",
     [](auto &b, auto &w) {
         b.nodes[w[1]] = {.words = NumberAs<int>(w[2]),
                          .result = w.size() > 3 ? NumberAs<int>(w[3]) : 0};
     }},
    {"answer PATH REQUEST RECORD...", AddAnswers},
    {"flash PATH BYTES", [](auto &b, auto &w) { AddFlash(b, w[1], w[2]); }},
    {"environment TEXT",
     [](auto &b, auto &w) {
         AddFlash(b, "/dev/mtd/0", std::string(0x40000, 'x') + w[1] + '\0' + std::string(512, '.'));
     }},
    {"transfer PATH MOST",
     [](auto &b, auto &w) { NodeOf(b, w).transfer = NumberAs<size_t>(w[2]); }},
    {"stuck PATH OFFSET TIMES",
     [](auto &b, auto &w) {
         NodeOf(b, w).stuck_bytes[NumberAs<size_t>(w[2])] = NumberAs<int>(w[3]);
     }},
    {"line PATH", [](auto &b, auto &w) { b.nodes[w[1]] = {.kind = Node::kLine}; }},
    {"send-time PATH MICROSECONDS",
     [](auto &b, auto &w) { NodeOf(b, w).send_time = NumberIn(w[2]); }},
    {"received PATH BYTES", [](auto &b, auto &w) { NodeOf(b, w).input.push_back({w[2]}); }},
    {"reply PATH BYTE PIECE...",
     [](auto &b, auto &w) { NodeOf(b, w).replies[w[2][0]].assign(w.begin() + 3, w.end()); }},
    {"hear PART...", [](auto &b, auto &w) { b.nodes["packet"].input.push_back(FrameOf(w)); }},
};

/// The byte that the letters from `at` on stand for. Leaves `at` at the last of them.
char Unescaped(const std::string &line, size_t &at)
{
    if (at < line.size() && line[at] == 'x') {
        at += 2;
        return static_cast<char>(NumberIn(line.substr(at - 1, 2), 16));
    }
    const size_t letter = at < line.size() ? kEscapes.find(line[at]) : std::string::npos;
    if (letter == std::string::npos && (at >= line.size() || line[at] != '"')) {
        throw WrongLine("no escape is written '\\" + line.substr(at, 1) + "'");
    }
    return letter != std::string::npos ? kEscapedBytes[letter] : line[at];
}

/// Repeats the end of the word, "TEXT*COUNT" from `begin` on.
void Repeat(std::string &word, size_t begin)
{
    const size_t star = word.rfind('*');
    if (star == std::string::npos || star < begin) {
        throw WrongLine("'{" + word.substr(begin) + "}' has no '*COUNT'");
    }
    const std::string text = word.substr(begin, star - begin);
    const auto count = NumberAs<size_t>(word.substr(star + 1));
    word.resize(begin);
    for (size_t i = 0; i < count; ++i) {
        word += text;
    }
}

/// A mark that lost a blank beside it would be a part of a word.
void CheckMark(const std::string &line, size_t at, bool in_word)
{
    const bool begins = !in_word && (line[at] == '+' || line[at] == '$');
    if ((begins && at + 1 < line.size() && line[at + 1] != ' ') || line[at] == '|') {
        throw WrongLine("a blank is missing beside '" + line.substr(at, 1) +
                        "', or quotes around the word");
    }
}

} // namespace

Words WordsIn(const std::string &line)
{
    Words words;
    std::string word;
    bool quoted = false;
    bool begun = false;
    std::vector<size_t> braces; // where the repeated texts begin
    for (size_t at = 0; at < line.size(); ++at) {
        const char c = line[at];
        if (c == ' ' && !quoted) {
            if (std::exchange(begun, false)) {
                words.push_back(std::exchange(word, ""));
            }
            continue;
        }
        if (!quoted) {
            CheckMark(line, at, begun);
        }
        begun = true;
        if (c == '"') {
            quoted = !quoted;
        } else if (c == '\\') {
            word += Unescaped(line, ++at);
        } else if (c == '{') {
            braces.push_back(word.size());
        } else if (c == '}' && !braces.empty()) {
            Repeat(word, braces.back());
            braces.pop_back();
        } else {
            word += c;
        }
    }
    if (quoted || !braces.empty()) {
        throw WrongLine(quoted ? "a quote is not closed" : "a brace is not closed");
    }
    if (begun) {
        words.push_back(word);
    }
    return words;
}

long long NumberIn(const std::string &word, int base)
{
    char *end = nullptr;
    errno = 0;
    const long long number = std::strtoll(word.c_str(), &end, base);
    if (word.empty() || *end != '\0' || errno != 0 || std::isspace(word[0]) != 0) {
        throw WrongLine("'" + word + "' is not a number");
    }
    return number;
}

void CheckCount(const std::string &usage, const Words &words)
{
    std::istringstream stream{usage};
    const Words all{std::istream_iterator<std::string>{stream}, {}};
    const bool repeats = usage.ends_with("...");
    const auto optional = static_cast<size_t>(std::ranges::count(usage, '['));
    if (words.size() < all.size() - optional - (repeats ? 1 : 0) ||
        (!repeats && words.size() > all.size())) {
        throw WrongLine("expected: " + usage);
    }
}

void Prepare(FakeBoard &board, const Words &words)
{
    const auto *const own = std::ranges::find_if(kPreparations, [&words](const Preparation &row) {
        return !words.empty() && row.usage.substr(0, row.usage.find(' ')) == words[0];
    });
    if (own == std::end(kPreparations)) {
        throw WrongLine("docs/testing.md lists no preparation '" + (words.empty() ? "" : words[0]) +
                        "'");
    }
    CheckCount(own->usage, words);
    own->prepare(board, words);
}
