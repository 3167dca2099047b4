// A board for the tests: its files, devices, clock and processes, and a transcript of the program's
// outside effects, in order.
//
// The test program defines the C library calls with outside effects (fake_libc.cpp). While
// FakeBoard::Run runs, these calls come here. Otherwise they work as usual.
#pragma once

#include <fcntl.h>
#include <poll.h>
#include <termios.h>
#include <ucontext.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <csetjmp>
#include <cstdint>
#include <cstdio>
#include <deque>
#include <functional>
#include <map>
#include <set>
#include <string>
#include <vector>

/// An open descriptor of the program. A socket has the name of its kind in place of a path.
struct OpenFile {
    std::string path;
    int flags = O_RDWR;
    size_t position = 0;               ///< in a file or a flash partition
    bool is_told = false;              ///< the transcript already says that it is left open
    std::set<std::string> unread = {}; ///< names in a directory
};

/// Those that an earlier program left: 115,200 baud.
inline termios FirstSettings()
{
    termios settings{};
    settings.c_iflag = ICRNL;
    settings.c_oflag = OPOST;
    settings.c_lflag = ECHO;
    settings.c_cc[0] = 3;
    cfsetspeed(&settings, B115200);
    return settings;
}

/// What is behind a path. One record for all kinds; each kind uses some of the members.
struct Node {
    static constexpr uint32_t kBlock = 4096;
    enum Kind { kDriver, kFile, kFlash, kLine, kSocket };

    // Like the calls of these names; an error is -1 with errno.
    ssize_t Read(OpenFile &file, void *buffer, size_t count);
    ssize_t Write(OpenFile &file, const void *buffer, size_t count);
    int Request(const OpenFile &file, unsigned long request, void *argument);
    int Terminal(unsigned long request, void *argument); ///< of a line
    int Poll(pollfd &state, int timeout);                ///< milliseconds

    Kind kind = kDriver;

    // A driver, or the driver side of a line.
    int words = 1;  ///< 32-bit words of a request's record
    int result = 0; ///< of a request
    std::map<unsigned long, std::deque<std::vector<uint32_t>>> answers = {}; ///< the last repeats

    // Files and flash. An erased block of flash is 0xFF, and a write can only clear bits.
    std::string bytes = {};
    size_t transfer = SIZE_MAX; ///< the most that one call moves, except a write to a file
    std::map<size_t, int> stuck_bytes = {}; ///< lowest bit stays set, for this many writes

    // The pieces that a line or a socket receives, and its reaction to a sent frame.
    struct Piece {
        std::string bytes;
        short events = POLLIN; ///< the result of poll; 0 is a time-out
    };
    std::deque<Piece> input = {};
    std::map<char, std::vector<std::string>> replies = {}; ///< pieces, by a frame's second byte
    int64_t send_time = 0;                                 ///< microseconds
    termios settings = FirstSettings();
};

class FakeBoard
{
public:
    FakeBoard();
    ~FakeBoard();
    FakeBoard(const FakeBoard &) = delete;
    FakeBoard &operator=(const FakeBoard &) = delete;

    // --- preparations

    void Write(const std::string &path, const std::string &text);
    void Remove(const std::string &path); ///< and everything below it
    /// Lets calls of a C library function fail, on paths that contain `path`. Streams use the calls
    /// on files; "" means every call. With error 0, a call that moves bytes moves none, and other
    /// calls work.
    struct Fault {
        std::string function;
        int error;
        int first = 1; ///< the call of this number, counted from now on
        int last = 1;
        std::string path = {};
    };
    void Fail(const Fault &fault) { faults_.push_back(fault); }
    /// An action when a line is added to the transcript for the `nth` time.
    struct Event {
        std::string line;
        int nth;
        std::function<void()> action;
    };

    std::map<std::string, Node> nodes;          ///< by path
    std::map<std::string, std::string> new_etc; ///< the files of /etc after the next mount
    std::vector<Event> events;
    bool processes_obey = true;        ///< a signal ends a process
    int64_t clock = 1'000'000'000'000; ///< microseconds

    /// Calls the function on the board until it returns or the process ends.
    void Run(const std::function<void()> &function);

    // --- results

    /// The transcript since the last call, its bytes escaped, with a line break before each line:
    /// only lines that begin with one of the words, or all lines without words. Repeated lines are
    /// counted. Its end always lists open descriptors.
    std::string TakeTranscript(const std::vector<std::string> &words = {});
    [[nodiscard]] std::string Read(const std::string &path) const; ///< "(none)" without such a file
    /// The first call that was made to fail and its path, or "".
    [[nodiscard]] const std::string &failed() const { return failed_; }
    /// A call that was to fail and was not made, or an event that did not happen; or "".
    [[nodiscard]] std::string Missed() const;

    std::string wrong_event; ///< what an event's action had to say about its words

    // --- for the C library calls

    /// Adds a line. Returns 0, like a call that works.
    int Record(const std::string &line);
    /// Records the output of a stream. A line that comes in pieces is recorded as one line. If
    /// something else comes in between, the piece is recorded before it and ends in "\c".
    void Print(const std::string &stream, const std::string &text);
    bool Fails(const std::string &function, const std::string &path);
    int Shell(const char *command);
    int Kill(int id, int signal_number);
    bool Unmount(const std::string &path); ///< unless a file on it is open
    [[noreturn]] void Leave();             ///< the function that Run called
    /// Null if there is nothing behind the path.
    [[nodiscard]] Node *NodeAt(const std::string &path);

    // There can be a second thread, which is a coroutine. The two run in turn, each until it
    // pauses, so their effects have the same order in every run. If two pauses end together, the
    // second thread goes first.
    void StartWorker(const std::function<void()> &body);
    void Pause(int64_t microseconds);

    std::map<int, OpenFile> open_files;
    std::map<int, void (*)(int)> signal_handlers;

private:
    void End();
    void EndPiece();
    static void RunWorker();

    std::vector<std::string> transcript_;
    std::string piece_; ///< of a stream's unfinished line, with the stream's name
    std::vector<Fault> faults_;
    std::string failed_;
    std::FILE *saved_streams_[2] = {};
    sigjmp_buf ended_ = {};
    int64_t worker_wakes_ = INT64_MAX; ///< when the second thread goes on; never if there is none
    bool in_worker_ = false;
    ucontext_t first_ = {}, worker_ = {};
    std::vector<char> worker_stack_;
    std::function<void()> worker_body_;
};

inline FakeBoard *g_board = nullptr; ///< while its Run runs

inline int FailWith(int error)
{
    errno = error;
    return -1;
}

/// The bytes as "0a ff"; four or more equal bytes as "00*4".
std::string Hex(const std::string &bytes);

// The letters behind a backslash in the case files, and the bytes that they stand for.
constexpr std::string_view kEscapes = "nrtes0c\\", kEscapedBytes{"\n\r\t\033 \0\v\\", 8};

/// The text with invisible characters escaped, as in the case files. A blank only counts at the
/// end.
std::string Escaped(const std::string &text);
