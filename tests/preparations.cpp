// The preparations of the cases, and the words of their lines.
#include <unistd.h>

#include <cstring>
#include <sstream>
#include <stdexcept>
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

long long Number(const std::string &word)
{
    return std::stoll(word, nullptr, 0);
}

/// Parts of a frame or their bytes; "<28" cuts it, "!16" sets the events that poll reports.
Node::Piece FrameOf(const Words &words)
{
    Node::Piece frame;
    for (size_t i = 1; i < words.size(); ++i) {
        const auto part = kFrameParts.find(words[i]);
        if (words[i].starts_with('<')) {
            frame.bytes.resize(std::stoul(words[i].substr(1)));
        } else if (words[i].starts_with('!')) {
            frame.events = static_cast<short>(Number(words[i].substr(1)));
        } else {
            frame.bytes += part != kFrameParts.end() ? part->second : words[i];
        }
    }
    return frame;
}

/// "N" or "N-M"
std::pair<int, int> RangeOf(const std::string &word)
{
    return {std::stoi(word), std::stoi(word.substr(word.find('-') + 1))};
}

/// FUNCTION ERROR [N | N-M] [PATH]
void AddFault(FakeBoard &board, const Words &words)
{
    int error = 0;
    while (words.at(2) != "0" &&
           (strerrorname_np(error) == nullptr || words[2] != strerrorname_np(error))) {
        if (++error > 200) {
            throw std::runtime_error("no error " + words[2]);
        }
    }
    const auto [first, last] = RangeOf(words.size() > 3 ? words[3] : "1");
    board.Fail({words[1], error, first, last, words.size() > 4 ? words[4] : ""});
}

/// ID | FIRST-LAST, then the command line
void AddProcesses(FakeBoard &board, const Words &words)
{
    const auto [first, last] = RangeOf(words.at(1));
    for (int id = first; id <= last; ++id) {
        board.Write("/proc/" + std::to_string(id) + "/cmdline", words.at(2));
    }
}

/// [PART=VALUE...]: the parts that differ from those of a package that the board accepts.
void WritePackage(FakeBoard &board, const Words &words)
{
    Words all = WordsIn("marker=3510 version=1 data={K*1000} \"second=second region\" "
                        "\"etc=\\x85\\x19 file system\" "
                        "system=5 architecture=2 type=2 compression=1");
    all.insert(all.end(), words.begin() + 1, words.end());
    std::map<std::string, std::string> parts;
    for (const std::string &part : all) {
        const size_t end = part.find('=');
        parts[part.substr(0, end)] = part.substr(end + 1);
    }
    board.Write("/tmp/flash3", BuildPackage(parts));
}

/// PATH REQUEST RECORD...: the driver's answers, one record a call; commas separate its words.
void AddAnswers(FakeBoard &board, const Words &words)
{
    auto &answers = board.nodes[words.at(1)].answers[std::stoul(words.at(2), nullptr, 16)];
    answers.clear();
    for (size_t i = 3; i < words.size(); ++i) {
        std::istringstream record{words[i]};
        answers.emplace_back();
        for (std::string word; std::getline(record, word, ',');) {
            answers.back().push_back(static_cast<uint32_t>(Number(word)));
        }
    }
}

using Preparation = void (*)(FakeBoard &board, const Words &words);

Node &NodeOf(FakeBoard &board, const Words &words)
{
    return board.nodes[words.at(1)];
}

/// LINE N PREPARATION...
void PrepareAt(FakeBoard &board, const Words &words)
{
    const Words later{words.begin() + 3, words.end()};
    board.events.push_back(
        {words.at(1), std::stoi(words.at(2)), [&board, later] { Prepare(board, later); }});
}

void AddFlash(FakeBoard &board, const std::string &path, const std::string &bytes)
{
    board.nodes[path] = {.kind = Node::kFlash, .bytes = bytes};
}

const std::map<std::string, Preparation> kPreparations = {
    {"file", [](auto &b, auto &w) { b.Write(w.at(1), w.at(2)); }},
    {"conf", [](auto &b, auto &w) { b.Write("/etc/a.conf", w.at(1)); }},
    {"new", [](auto &b, auto &w) { b.new_etc[w.at(1)] = w.at(2); }},
    {"model", [](auto &b, auto &w) { b.Write("/etc/cam_model.conf", "cam_model=" + w.at(1)); }},
    {"package", WritePackage},
    {"poke",
     [](auto &b, auto &w) {
         NodeOf(b, w).bytes.replace(std::stoul(w.at(2)), w.at(3).size(), w[3]);
     }},
    {"cut", [](auto &b, auto &w) { NodeOf(b, w).bytes.resize(std::stoul(w.at(2))); }},
    {"no", [](auto &b, auto &w) { b.Remove(w.at(1)); }},
    {"proc", AddProcesses},
    {"stubborn", [](auto &b, auto &) { b.processes_obey = false; }},
    {"clock", [](auto &b, auto &w) { b.clock = Number(w.at(1)); }},
    {"at", PrepareAt},
    {"signal", [](auto &b, auto &w) { b.signal_handlers.at(std::stoi(w.at(1)))(0); }},
    {"fail", AddFault},
    {"no-input", [](auto &, auto &) { close(0); }},
    {"driver",
     [](auto &b, auto &w) {
         b.nodes[w.at(1)] = {.words = std::stoi(w.at(2)),
                             .result = w.size() > 3 ? static_cast<int>(Number(w[3])) : 0};
     }},
    {"answer", AddAnswers},
    {"flash", [](auto &b, auto &w) { AddFlash(b, w.at(1), w.at(2)); }},
    {"environment",
     [](auto &b, auto &w) {
         AddFlash(b, "/dev/mtd/0",
                  std::string(0x40000, 'x') + w.at(1) + '\0' + std::string(512, '.'));
     }},
    {"transfer", [](auto &b, auto &w) { NodeOf(b, w).transfer = std::stoul(w.at(2)); }},
    {"stuck",
     [](auto &b, auto &w) { NodeOf(b, w).stuck_bytes[std::stoul(w.at(2))] = std::stoi(w.at(3)); }},
    {"line", [](auto &b, auto &w) { b.nodes[w.at(1)] = {.kind = Node::kLine}; }},
    {"send-time", [](auto &b, auto &w) { NodeOf(b, w).send_time = Number(w.at(2)); }},
    {"received", [](auto &b, auto &w) { NodeOf(b, w).input.push_back({w.at(2)}); }},
    {"reply",
     [](auto &b, auto &w) { NodeOf(b, w).replies[w.at(2)[0]].assign(w.begin() + 3, w.end()); }},
    {"hear", [](auto &b, auto &w) { b.nodes["packet"].input.push_back(FrameOf(w)); }},
};

char Unescaped(const std::string &line, size_t &at)
{
    if (line.at(at) == 'x') {
        at += 2;
        return static_cast<char>(std::stoi(line.substr(at - 1, 2), nullptr, 16));
    }
    const size_t letter = kEscapes.find(line[at]);
    return letter != std::string::npos ? kEscapedBytes[letter] : line[at];
}

} // namespace

Words WordsIn(const std::string &line)
{
    Words words;
    std::string word;
    bool quoted = false;
    bool begun = false;
    std::vector<size_t> braces; // where the repeated texts begin
    for (size_t at = 0; at <= line.size(); ++at) {
        const char c = at < line.size() ? line[at] : ' ';
        if (c == ' ' && !quoted) {
            if (std::exchange(begun, false)) {
                words.push_back(std::exchange(word, ""));
            }
            continue;
        }
        begun = true;
        if (c == '"') {
            quoted = !quoted;
        } else if (c == '\\') {
            word += Unescaped(line, ++at);
        } else if (c == '{') {
            braces.push_back(word.size());
        } else if (c == '}') {
            const size_t begin = braces.back();
            const size_t star = word.rfind('*');
            braces.pop_back();
            const std::string text = word.substr(begin, star - begin);
            const unsigned long count = std::stoul(word.substr(star + 1));
            word.resize(begin);
            for (unsigned long i = 0; i < count; ++i) {
                word += text;
            }
        } else {
            word += c;
        }
    }
    return words;
}

void Prepare(FakeBoard &board, const Words &words)
{
    if (!kPreparations.contains(words.at(0))) {
        throw std::runtime_error("no preparation " + words.at(0));
    }
    kPreparations.at(words.at(0))(board, words);
}
