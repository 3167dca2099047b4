// A board for the tests: its files, devices, clock and processes, and a transcript of all that the
// program does to the outside, in order.
//
// The test program defines the C library calls that touch the outside (fake_libc.cpp); while
// FakeBoard::Run is under way they come here, otherwise they do what they always do.
#pragma once

#include <fcntl.h>
#include <poll.h>
#include <termios.h>

#include <climits>
#include <csetjmp>
#include <cstdint>
#include <cstdio>
#include <deque>
#include <filesystem>
#include <functional>
#include <map>
#include <semaphore>
#include <string>
#include <vector>

/// What the program has open: a file, a device, or a socket under the name of its kind.
struct OpenFile {
    std::string path;
    int flags = O_RDWR;
    size_t position = 0;  ///< in a flash partition
    bool is_told = false; ///< the transcript says that it was left open
};

/// What stands behind a device node. One record for all kinds; each uses what it needs.
struct Device {
    static constexpr uint32_t kBlock = 4096;
    enum Kind { kDriver, kFlash, kLine, kEthernet };

    // As the calls of these names; an error is -1 with errno.
    ssize_t Read(OpenFile &file, void *buffer, size_t count);
    ssize_t Write(OpenFile &file, const void *buffer, size_t count);
    int Request(OpenFile &file, unsigned long request, void *argument);
    int Terminal(unsigned long request, void *argument); ///< of a line
    short Poll(int timeout); ///< what is ready; 0 after `timeout` milliseconds

    Kind kind = kDriver;

    // A driver, or the driver side of a line.
    int words = 1;  ///< 32-bit words that a request takes along
    int result = 0; ///< of a request
    std::map<unsigned long, std::deque<std::vector<uint32_t>>> answers; ///< the last one repeats

    // Flash: an erased block is 0xFF, and a write can only clear bits.
    std::string bytes = {};
    size_t transfer = SIZE_MAX;             ///< the most that one read or write moves
    std::map<size_t, int> stuck_bytes = {}; ///< lowest bit stays set, for so many writes

    // What a line or a socket receives, piece by piece, and what it does about a frame sent.
    struct Piece {
        std::string bytes;
        short events = POLLIN; ///< as poll tells them; 0 is a time-out
    };
    std::deque<Piece> input = {};
    std::map<char, std::vector<std::string>> replies = {}; ///< pieces, by a frame's second byte
    int64_t send_time = 0;                                 ///< microseconds
    termios settings{ICRNL, OPOST, B115200, ECHO, 0, {3}, 0, 0};
};

class FakeBoard
{
public:
    FakeBoard();
    ~FakeBoard();
    FakeBoard(const FakeBoard &) = delete;
    FakeBoard &operator=(const FakeBoard &) = delete;

    // --- what a test prepares

    void Write(const std::string &path, const std::string &text);
    /// Lets calls of a C library function fail, on paths that contain `path`. Those on streams are
    /// "fopen", "fread", "fwrite" and "fclose"; "" is any call at all. Error 0 lets a call that
    /// moves bytes move none, and others alone.
    struct Fault {
        std::string function;
        int error;
        int first = 1; ///< the call of this number, counted from now on
        int last = 1;
        std::string path = {};
    };
    void Fail(const Fault &fault) { faults_.push_back(fault); }
    /// What happens when a line of the transcript is added for the `nth` time.
    struct Event {
        std::string line;
        int nth;
        std::function<void()> action;
    };

    std::map<std::string, Device> devices;      ///< by path; flash and watchdog are there
    std::map<std::string, std::string> new_etc; ///< the files of /etc once it is mounted anew
    std::vector<Event> events;
    bool processes_obey = true;        ///< a signal ends a process
    bool has_input = true;             ///< descriptor 0 is open
    int64_t clock = 1'000'000'000'000; ///< microseconds
    int64_t send_time = 0;             ///< microseconds that a datagram takes
    size_t longest_send = SIZE_MAX;    ///< what one call takes of a datagram
    std::deque<std::string> datagrams; ///< sent and not yet received

    /// Calls the function on the board, to its end or that of the process.
    void Run(const std::function<void()> &function);

    // --- what a test looks at

    /// The transcript since the last call, its bytes escaped: the lines that begin with one of the
    /// words, all without any. Lines that repeat are counted, and their bytes summed up.
    /// Descriptors and directories left open end it in any case.
    std::vector<std::string> TakeTranscript(const std::vector<std::string> &words = {});
    [[nodiscard]] std::string Read(const std::string &path) const; ///< "(none)" without such a file
    /// The first call that failed on purpose and its path, "" without one.
    [[nodiscard]] const std::string &failed() const { return failed_; }

    // --- what the C library calls use

    static FakeBoard *Active();
    /// Adds a line and how many bytes it moved.
    void Record(const std::string &line, size_t bytes = 0);
    /// Records what a stream puts out. A line that comes in pieces is one line, unless something
    /// else is recorded in between: then the piece stands before it, and ends in "\c".
    void Print(const std::string &stream, const std::string &text);
    bool Fails(const std::string &function, const std::string &path);
    [[nodiscard]] std::string Map(const std::string &path) const { return root_.string() + path; }
    int Shell(const char *command);
    void Kill(int id, int signal_number);
    bool Unmount(const std::string &path); ///< unless a file on it is open
    [[noreturn]] void Leave();             ///< the call that Run has made
    /// The device behind the path; null for anything else.
    [[nodiscard]] Device *DeviceAt(const std::string &path);

    // One thread beside the first. They run in turn, each until it pauses: what they do has one
    // order in every run. Pauses that end together end with the second thread first.
    void Pause(int64_t microseconds);
    void WorkerBegins() { to_worker_.acquire(); }
    void WorkerEnds();

    std::map<int, OpenFile> open_files;
    std::map<void *, std::string> open_directories;
    std::map<int, void (*)(int)> signal_handlers;
    int64_t worker_wakes = INT64_MAX; ///< when the second thread goes on; never when there is none

private:
    struct Line {
        std::string text;
        int count;
        size_t bytes;
    };

    void Begin();
    void End();
    void EndPiece();

    std::filesystem::path root_;
    std::vector<Line> transcript_;
    std::string piece_; ///< of a line that a stream puts out, with the stream's name
    std::vector<Fault> faults_;
    std::string failed_;
    std::FILE *saved_streams_[2] = {};
    sigjmp_buf ended_ = {};
    bool in_worker_ = false;
    std::binary_semaphore to_worker_{0};
    std::binary_semaphore to_first_{0};
};

/// While it lives, calls are no acts of the program.
struct OffBoard {
    OffBoard();
    ~OffBoard();
    FakeBoard *const board;
};

/// The bytes as "0a ff"; four and more of the same as "00*4".
std::string Hex(const std::string &bytes);

/// The text with what cannot be seen escaped, as the case files have it.
std::string Escaped(const std::string &text);
