#include "tests/fake_board.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <sstream>
#include <utility>

namespace
{

constexpr char kNoLineEnd = '\v'; // after a piece of a line

ssize_t PrintTo(void *stream, const char *text, size_t size)
{
    g_board->Print(static_cast<const char *>(stream), {text, size});
    return static_cast<ssize_t>(size);
}

std::FILE *OpenStream(const char *name)
{
    std::FILE *stream =
        fopencookie(const_cast<char *>(name), "w", {nullptr, PrintTo, nullptr, nullptr});
    setvbuf(stream, nullptr, _IOLBF, BUFSIZ);
    return stream;
}

} // namespace

FakeBoard::FakeBoard()
{
    for (const char *partition : {"/dev/mtd/1", "/dev/mtd/2", "/dev/mtd/3"}) {
        nodes[partition] = {.kind = Node::kFlash,
                            .bytes = std::string(size_t{4} * Node::kBlock, 'U')};
    }
    nodes["socket"] = nodes["packet"] = {.kind = Node::kSocket};
    nodes["/dev/misc/watchdog"] = {.answers = {{0x80045707, {{30}}}}}; // its time-out
}

FakeBoard::~FakeBoard()
{
    for (const auto &[fd, file] : open_files) {
        close(fd);
    }
    if (fcntl(0, F_GETFD) < 0) {
        open("/dev/null", O_RDONLY); // as descriptor 0
    }
}

void FakeBoard::Write(const std::string &path, const std::string &text)
{
    nodes[path] = {.kind = Node::kFile, .bytes = text};
}

void FakeBoard::Remove(const std::string &path)
{
    nodes.erase(path);
    nodes.erase(nodes.lower_bound(path + '/'), nodes.lower_bound(path + char{'/' + 1}));
}

std::string FakeBoard::Read(const std::string &path) const
{
    return nodes.contains(path) ? nodes.at(path).bytes : "(none)";
}

void FakeBoard::Run(const std::function<void()> &function)
{
    std::fflush(stdout);
    saved_streams_[0] = std::exchange(stdout, OpenStream("out"));
    saved_streams_[1] = std::exchange(stderr, OpenStream("err"));
    g_board = this;
    try {
        if (sigsetjmp(ended_, 1) == 0) {
            function();
        }
    } catch (...) { // of a test
        End();
        throw;
    }
    End();
}

void FakeBoard::End()
{
    while (worker_wakes_ != INT64_MAX) {
        Pause(1'000'000);
    }
    std::fclose(std::exchange(stdout, saved_streams_[0]));
    std::fclose(std::exchange(stderr, saved_streams_[1]));
    EndPiece();
    for (auto &[fd, file] : open_files) {
        if (!std::exchange(file.is_told, true)) {
            Record("left open " + file.path);
        }
    }
    g_board = nullptr;
}

void FakeBoard::Leave()
{
    siglongjmp(ended_, 1);
}

std::string FakeBoard::TakeTranscript(const std::vector<std::string> &words)
{
    std::vector<std::pair<std::string, int>> lines; // with their counts
    for (const std::string &line : std::exchange(transcript_, {})) {
        const auto begins = [&line](const auto &word) { return line.starts_with(word); };
        if (!words.empty() && !begins("left open") && !begins("= ") &&
            std::ranges::none_of(words, begins)) {
            continue;
        }
        if (lines.empty() || lines.back().first != line || begins("= ")) {
            lines.emplace_back(line, 0);
        }
        ++lines.back().second;
    }
    std::string found;
    for (const auto &[line, count] : lines) {
        found += "\n" + Escaped(line) + (count > 1 ? " x" + std::to_string(count) : "");
    }
    return found;
}

int FakeBoard::Record(const std::string &line)
{
    EndPiece();
    transcript_.push_back(line);
    if (transcript_.size() > 100'000) {
        std::abort(); // the program never ends
    }
    for (Event &event : events) {
        if (event.line == line && --event.nth == 0) {
            event.action();
        }
    }
    return 0;
}

void FakeBoard::Print(const std::string &stream, const std::string &text)
{
    if (!piece_.starts_with(stream)) {
        EndPiece();
    }
    for (const char c : text) {
        if (c == '\n') {
            Record(piece_.empty() ? stream : std::exchange(piece_, ""));
        } else {
            piece_ += piece_.empty() ? stream + " " + c : std::string{c};
        }
    }
}

void FakeBoard::EndPiece()
{
    if (!piece_.empty()) {
        Record(std::exchange(piece_, "") + kNoLineEnd);
    }
}

bool FakeBoard::Fails(const std::string &function, const std::string &path)
{
    const bool moves_bytes = function.ends_with("read") || function.ends_with("write") ||
                             function.starts_with("send") || function.starts_with("recv");
    bool fails = false;
    for (Fault &fault : faults_) {
        if ((fault.function.empty() || fault.function == function) &&
            path.find(fault.path) != std::string::npos && (fault.error != 0 || moves_bytes)) {
            --fault.first;
            --fault.last;
            if (fault.first <= 0 && fault.last >= 0) {
                errno = fault.error;
                fails = true;
                if (failed_.empty()) {
                    failed_ = function + " " + path;
                }
            }
        }
    }
    return fails;
}

std::string FakeBoard::Missed() const
{
    const auto fault =
        std::ranges::find_if(faults_, [](const Fault &own) { return own.first > 0; });
    if (fault != faults_.end()) {
        return "call of '" + fault->function + "' that was to fail";
    }
    const auto event = std::ranges::find_if(events, [](const Event &own) { return own.nth > 0; });
    return event != events.end() ? "effect '" + event->line + "' that an 'at' waits for" : "";
}

int FakeBoard::Shell(const char *command)
{
    Record(std::string{"sh "} + command);
    if (std::strcmp(command, "/sbin/reboot") == 0) {
        Leave();
    }
    if (Fails("system", command)) {
        return -1;
    }
    std::istringstream stream{command};
    const std::vector<std::string> words(std::istream_iterator<std::string>{stream}, {});
    if (words[0].ends_with("cp") && words.size() >= 4 && nodes.contains(words[2])) {
        nodes[words[3]] = nodes[words[2]];
    } else if (words[0].ends_with("rm")) {
        nodes.erase(words[2]);
    } else if (words[0] == "/bin/mount") {
        for (const auto &[path, text] : new_etc) {
            Write(path, text);
        }
    }
    return 0;
}

int FakeBoard::Kill(int id, int signal_number)
{
    Record("kill " + std::to_string(id) + " " + std::to_string(signal_number));
    if (processes_obey) {
        Remove("/proc/" + std::to_string(id));
    }
    return 0;
}

bool FakeBoard::Unmount(const std::string &path)
{
    Record("umount " + path);
    const bool is_busy = std::ranges::any_of(
        open_files, [&path](auto &file) { return file.second.path.starts_with(path + "/"); });
    is_busy ? void() : Remove(path);
    return !is_busy;
}

Node *FakeBoard::NodeAt(const std::string &path)
{
    const auto node = nodes.find(path);
    return node != nodes.end() ? &node->second : nullptr;
}

void FakeBoard::RunWorker()
{
    g_board->worker_body_();
    g_board->worker_wakes_ = INT64_MAX;
}

void FakeBoard::StartWorker(const std::function<void()> &body)
{
    worker_body_ = body;
    worker_wakes_ = clock;
    worker_stack_.resize(size_t{256} * 1024);
    getcontext(&worker_);
    worker_.uc_stack.ss_sp = worker_stack_.data();
    worker_.uc_stack.ss_size = worker_stack_.size();
    worker_.uc_link = &first_;
    makecontext(&worker_, RunWorker, 0);
}

void FakeBoard::Pause(int64_t microseconds)
{
    const int64_t wakes = clock + microseconds;
    if (in_worker_) {
        worker_wakes_ = wakes;
        swapcontext(&worker_, &first_);
        return;
    }
    while (worker_wakes_ <= wakes) {
        clock = std::max(clock, worker_wakes_);
        in_worker_ = true;
        swapcontext(&first_, &worker_);
        in_worker_ = false;
    }
    clock = std::max(clock, wakes);
}

std::string Hex(const std::string &bytes)
{
    std::string text;
    for (size_t i = 0; i < bytes.size();) {
        const size_t end = std::min(bytes.find_first_not_of(bytes[i], i), bytes.size());
        const size_t count = end - i >= 4 ? end - i : 1;
        char digits[32];
        std::snprintf(digits, sizeof digits, count > 1 ? " %02x*%zu" : " %02x",
                      static_cast<uint8_t>(bytes[i]), count);
        text += text.empty() ? digits + 1 : digits;
        i += count;
    }
    return text;
}

std::string Escaped(const std::string &text)
{
    std::string escaped;
    for (size_t i = 0; i < text.size();) {
        const char c = text[i];
        const size_t end = std::min(text.find_first_not_of(c, i), text.size());
        const size_t count = end - i >= 24 && c != ' ' ? end - i : 1;
        const bool is_blank = c == ' ' && i + 1 < text.size();
        const size_t letter = is_blank ? std::string::npos : kEscapedBytes.find(c);
        const std::string shown = letter != std::string::npos ? std::string{'\\', kEscapes[letter]}
                                  : c >= ' ' && c <= '~'      ? std::string{c}
                                                              : "\\x" + Hex({c});
        escaped += count == 1 ? shown : "{" + shown + "*" + std::to_string(count) + "}";
        i += count;
    }
    return escaped;
}
