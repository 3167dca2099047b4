#include "tests/fake_board.h"

#include <algorithm>
#include <fstream>
#include <iterator>
#include <sstream>
#include <utility>

namespace fs = std::filesystem;

namespace
{

FakeBoard *g_active = nullptr;

ssize_t PrintTo(void *stream, const char *text, size_t size)
{
    g_active->Print(static_cast<const char *>(stream), {text, size});
    return static_cast<ssize_t>(size);
}

std::FILE *OpenStream(const char *name)
{
    std::FILE *stream =
        fopencookie(const_cast<char *>(name), "w", {nullptr, PrintTo, nullptr, nullptr});
    setvbuf(stream, nullptr, _IOLBF, BUFSIZ);
    return stream;
}

int CountDescriptors()
{
    return static_cast<int>(std::distance(fs::directory_iterator("/proc/self/fd"), {}));
}

} // namespace

FakeBoard::FakeBoard() : open_before_(CountDescriptors())
{
    // In memory where that is possible: the tests write and rename files by the thousand.
    const fs::path memory = "/dev/shm";
    const fs::path place = fs::is_directory(memory) ? memory : fs::temp_directory_path();
    std::string name = place / "qve-board.XXXXXX";
    root_ = mkdtemp(name.data());
    for (const char *directory : {"etc", "dev/mtd", "dev/misc", "proc", "tmp", "bin", "mnt"}) {
        fs::create_directories(root_ / directory);
    }
    for (const char *device : {"/dev/mtd/1", "/dev/mtd/2", "/dev/mtd/3"}) {
        mtd[device].bytes.assign(size_t{4} * FakeMtd::kBlock, 0x55);
        devices[device] = &mtd[device];
    }
    devices["/dev/misc/watchdog"] = &watchdog;
    devices[FakeEthernet::kPath] = &ethernet;
}

FakeBoard::~FakeBoard()
{
    EXPECT_LE(CountDescriptors() - open_before_, may_stay_open) << "descriptors left open";
    for (const auto &[fd, file] : open_files) {
        close(fd);
    }
    fs::remove_all(root_);
}

void FakeBoard::Write(const std::string &path, const std::string &text)
{
    const fs::path file = Map(path);
    fs::create_directories(file.parent_path());
    std::ofstream{file, std::ios::binary} << text;
}

void FakeBoard::AddProcess(int id, const std::string &command_line)
{
    Write("/proc/" + std::to_string(id) + "/cmdline", command_line);
}

void FakeBoard::AddProcesses(int first_id, const std::vector<std::string> &names)
{
    for (const std::string &name : names) {
        AddProcess(first_id++, "/bin/" + name);
    }
}

void FakeBoard::Fail(const std::string &function, int error, int nth, const std::string &path)
{
    faults_.push_back({function, error, nth, path});
}

int FakeBoard::Start(std::vector<std::string> words, AppletHandler *entry)
{
    std::vector<char *> arguments;
    for (std::string &word : words) {
        arguments.push_back(word.data());
    }
    arguments.push_back(nullptr);
    return Run(entry, static_cast<int>(words.size()), arguments.data());
}

std::string FakeBoard::transcript(const std::vector<std::string> &words) const
{
    std::string found = "\n";
    for (const auto &[text, count, bytes] : transcript_) {
        const auto begins = [&line = text](const auto &word) { return line.starts_with(word); };
        if (count > 0 && std::ranges::any_of(words, begins)) {
            found += text + (bytes > 0 ? " " + std::to_string(bytes) + " bytes" : "") +
                     (count > 1 ? " x" + std::to_string(count) : "") + "\n";
        }
    }
    return found;
}

std::string FakeBoard::Read(const std::string &path) const
{
    std::ifstream file{Map(path), std::ios::binary};
    return file ? std::string{std::istreambuf_iterator<char>{file}, {}} : "(none)";
}

FakeBoard *FakeBoard::Active()
{
    return g_active;
}

void FakeBoard::Record(const std::string &line, size_t bytes)
{
    EndPiece();
    if (transcript_.empty() || transcript_.back().text != line) {
        transcript_.push_back({line, 0, 0});
    }
    ++transcript_.back().count;
    transcript_.back().bytes += bytes;
    on_line(line);
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
        Record(std::exchange(piece_, "") + "\\c");
    }
}

bool FakeBoard::Fails(const std::string &function, const std::string &path)
{
    const bool opens = function == "open" || function == "fopen";
    const bool moves_bytes = function.ends_with("read") || function.ends_with("write") ||
                             function.starts_with("send") || function.starts_with("recv");
    Uses &uses = uses_[path];
    if (opens) {
        uses = {uses.openings + 1, {}};
    }
    const std::string number =
        std::to_string(uses.openings) + "." + std::to_string(++uses.calls[function]);
    bool fails = false;
    for (Fault &fault : faults_) {
        if ((fault.function.empty() || fault.function == function) &&
            path.find(fault.path) != std::string::npos && (fault.error != 0 || moves_bytes) &&
            (--fault.nth == 0 || (fault.nth < 0 && faults_last))) {
            errno = fault.error;
            fails = true;
            failed_ = failed_.empty() ? function + " " + path + " " + number : failed_;
        }
    }
    return fails;
}

std::string FakeBoard::Map(const std::string &path) const
{
    for (const char *prefix : {"/etc", "/dev", "/proc", "/tmp", "/usr/upgrade", "/bin/", "/mnt"}) {
        if (path.starts_with(prefix)) {
            return root_ / path.substr(1);
        }
    }
    return path;
}

int FakeBoard::Shell(const std::string &command)
{
    Record("sh " + command);
    if (command == "/sbin/reboot") {
        Leave(kRebooted);
    }
    if (Fails("system", command)) {
        return -1;
    }
    g_active = nullptr; // what the command does is no act of the program
    std::istringstream stream{command};
    const std::vector<std::string> words{std::istream_iterator<std::string>{stream}, {}};
    std::error_code failure; // is the command's own
    if (words[0].ends_with("cp") && words.size() >= 4) {
        fs::copy_file(Map(words[2]), Map(words[3]), fs::copy_options::overwrite_existing, failure);
    } else if (words[0].ends_with("rm")) {
        fs::remove(Map(words[2]), failure);
    } else if (words[0] == "/bin/mount") {
        for (const auto &[path, text] : new_etc) {
            Write(path, text);
        }
    }
    g_active = this;
    return 0;
}

void FakeBoard::Leave(int result)
{
    siglongjmp(ended_, result);
}

FakeDevice *FakeBoard::DeviceAt(const std::string &path) const
{
    const auto device = devices.find(path);
    return device != devices.end() ? device->second : nullptr;
}

void FakeBoard::Signal(int id, int signal_number)
{
    Record("kill " + std::to_string(id) + " " + std::to_string(signal_number));
    if (processes_obey) {
        g_active = nullptr;
        fs::remove_all(Map("/proc/" + std::to_string(id)));
        g_active = this;
    }
}

bool FakeBoard::Unmount(const std::string &path)
{
    Record("umount " + path);
    for (const auto &[fd, file] : open_files) {
        if (file.path.starts_with(path + "/")) {
            return false;
        }
    }
    g_active = nullptr;
    fs::remove_all(Map(path));
    fs::create_directory(Map(path));
    g_active = this;
    return true;
}

FakeBoard::Turn FakeBoard::QueueTurn(int64_t microseconds_from_now)
{
    const std::scoped_lock lock{mutex_};
    return *waiting_.insert({clock + microseconds_from_now, ++turns_}).first;
}

void FakeBoard::PassTurn()
{
    const std::scoped_lock lock{mutex_};
    turn_ = *waiting_.begin();
    waiting_.erase(turn_);
    clock = std::max(clock, turn_.first);
    turn_changed_.notify_all();
}

void FakeBoard::AwaitTurn(const Turn &turn)
{
    std::unique_lock lock{mutex_};
    turn_changed_.wait(lock, [&] { return turn_ == turn; });
}

void FakeBoard::Pause(int64_t microseconds)
{
    const Turn turn = QueueTurn(microseconds);
    PassTurn();
    AwaitTurn(turn);
}

void FakeBoard::Begin()
{
    transcript_.emplace_back(); // lines are not counted across runs
    std::fflush(stdout);
    saved_streams_[0] = std::exchange(stdout, OpenStream("out"));
    saved_streams_[1] = std::exchange(stderr, OpenStream("err"));
    g_active = this;
}

void FakeBoard::End()
{
    for (int pauses = 0; !waiting_.empty(); ++pauses) {
        if (pauses == 100) {
            std::abort(); // a thread does not come to its end
        }
        Pause(1'000'000);
    }
    std::fclose(std::exchange(stdout, saved_streams_[0]));
    std::fclose(std::exchange(stderr, saved_streams_[1]));
    EndPiece();
    g_active = nullptr;
}

std::string Hex(const std::string &bytes)
{
    std::string text;
    for (const char byte : bytes) {
        char digits[4];
        std::snprintf(digits, sizeof digits, " %02x", static_cast<uint8_t>(byte));
        text += text.empty() ? digits + 1 : digits;
    }
    return text;
}
