// A board for the unit tests: its files, devices, clock and processes, and a transcript of all that
// the program did to the outside, in order.
//
// The test program defines the C library calls that touch the outside (fake_libc_*.cpp); while
// FakeBoard::Run is under way they come here, otherwise they do what they always do.
#pragma once

#include <gtest/gtest.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <termios.h>

#include <climits>
#include <condition_variable>
#include <csetjmp>
#include <cstdint>
#include <cstdio>
#include <deque>
#include <filesystem>
#include <functional>
#include <map>
#include <mutex>
#include <set>
#include <string>
#include <vector>

#include "app/applet_table.h"
#include "app/dispatcher.h"

/// A file that the program has open.
struct OpenFile {
    std::string path;
    int flags = 0;
    size_t position = 0;
};

/// What stands behind a device node. A test that needs another one makes its own.
class FakeDevice
{
public:
    virtual ~FakeDevice() = default;
    /// As the calls of these names; an error is -1 with errno.
    virtual ssize_t Read(OpenFile &file, void *buffer, size_t count);
    virtual ssize_t Write(OpenFile &file, const void *buffer, size_t count);
    virtual int Request(OpenFile &file, unsigned long request, void *argument);
    /// Tells whether select finds something to read.
    virtual bool HasInput() { return true; }
    /// What is ready; 0 after `timeout` milliseconds in which nothing became so.
    virtual short Poll(int timeout);
};

/// A weak place of a flash partition.
struct BadSpot {
    int place = -1;
    int times = INT_MAX; ///< that it shows

    bool Shows(size_t where) { return static_cast<int>(where) == place && times-- > 0; }
};

/// A flash partition: erased to 0xFF by block, and a write can only clear bits.
struct FakeMtd : FakeDevice {
    static constexpr uint32_t kBlock = 4096;

    ssize_t Read(OpenFile &file, void *buffer, size_t count) override;
    ssize_t Write(OpenFile &file, const void *buffer, size_t count) override;
    int Request(OpenFile &file, unsigned long request, void *argument) override;

    std::vector<uint8_t> bytes;
    struct BadSpots {
        BadSpot unerasable_block{}, unwritable_block{};
        BadSpot stuck_byte{};    ///< its lowest bit stays set
        BadSpot flipping_byte{}; ///< its lowest bit turns round after it was written
    } bad;
    size_t transfer = SIZE_MAX; ///< the most that one read or write moves
};

struct FakeWatchdog : FakeDevice {
    ssize_t Write(OpenFile &file, const void *buffer, size_t count) override;
    int Request(OpenFile &file, unsigned long request, void *argument) override;

    int timeout = 30; ///< seconds: what the driver makes of any request
};

/// What a packet socket is bound to, and the path that stands for it.
struct FakeEthernet : FakeDevice {
    static constexpr const char *kPath = "/dev/packet";
    static constexpr char kAddress[] = "\2\0\0\0\0\1"; ///< the address that it tells

    ssize_t Read(OpenFile &file, void *buffer, size_t count) override;
    int Request(OpenFile &file, unsigned long request, void *argument) override;
    short Poll(int timeout) override;

    struct Arrival {
        std::string frame;
        short events = POLLIN; ///< as poll tells them; 0 is a time-out
    };
    std::deque<Arrival> arrivals;
};

/// A serial port and what is at the other end of its line.
struct FakeSerialLine : FakeDevice {
    using Pieces = std::deque<std::string>;

    ssize_t Read(OpenFile &file, void *buffer, size_t count) override;
    ssize_t Write(OpenFile &file, const void *buffer, size_t count) override;
    int Request(OpenFile &file, unsigned long request, void *argument) override;
    bool HasInput() override { return !input.empty(); }

    std::function<Pieces(const std::string &frame)> answer; ///< none is a silent line
    Pieces input;                                           ///< a read takes of the first only
    termios settings{ICRNL, OPOST, B115200, ECHO, 0, {3}, 0, 0};
    int modem_lines = TIOCM_DTR | TIOCM_RTS;
    int64_t send_time = 0; ///< microseconds that a write takes
    int busy_polls = 3;    ///< of the transmitter
};

/// What every reboot ends with.
inline const std::string kReboot =
    "sleep 1\nsh umount /mnt/sd/\nusleep 100\nsh umount /mnt/usb/\n"
    "usleep 100\nsh ifconfig rausb0 down\nsh rmmod rt73\nusleep 100\n"
    "sh /sbin/reboot\n";

class FakeBoard
{
public:
    FakeBoard();
    /// Also fails the test when the program left a descriptor open.
    ~FakeBoard();
    FakeBoard(const FakeBoard &) = delete;
    FakeBoard &operator=(const FakeBoard &) = delete;

    // --- what the test prepares

    void Write(const std::string &path, const std::string &text);
    void AddProcess(int id, const std::string &command_line);
    /// Adds /bin/NAME for each, with ids in this order.
    void AddProcesses(int first_id, const std::vector<std::string> &names);
    /// Lets the `nth` coming call of a C library function fail, on paths that contain `path`. Those
    /// on streams are "fopen", "fread", "fwrite" and "fclose"; "" is any call at all. Error 0 lets
    /// a call that moves bytes move none, and others alone.
    void Fail(const std::string &function, int error, int nth = 1, const std::string &path = "");
    bool faults_last = false; ///< what fails once fails from then on

    std::map<std::string, FakeDevice *> devices; ///< by path; those below are there
    std::map<std::string, FakeMtd> mtd;          ///< the flash partitions, by path
    FakeWatchdog watchdog;
    FakeEthernet ethernet;
    std::map<std::string, std::string> new_etc; ///< the files of /etc once it is mounted anew
    bool processes_obey = true;                 ///< a signal ends a process
    int64_t clock = 1'000'000'000'000;          ///< microseconds
    int64_t send_time = 0;                      ///< microseconds that a datagram takes
    size_t longest_send = SIZE_MAX;             ///< what one call takes of a datagram
    std::deque<std::string> datagrams{};        ///< sent and not yet received
    int may_stay_open = 0;                      ///< descriptors
    /// Is called with each line of the transcript as it is added.
    std::function<void(const std::string &line)> on_line = [](const std::string &) {};

    // --- what the test runs

    static constexpr int kRebooted = 4711;
    static constexpr int kExited = 4712; ///< and the lowest eight bits of the status on top

    /// Calls the function on the board. Returns its result; kRebooted when it ended in a reboot,
    /// kExited + status when it ended the process.
    template<typename Function, typename... Arguments>
    int Run(Function function, Arguments... arguments)
    {
        Begin();
        int result = sigsetjmp(ended_, 1);
        if (result == 0) {
            result = static_cast<int>(function(arguments...));
        }
        End();
        return result;
    }
    /// Starts the program under the name and with the arguments of `words`, or only an applet, for
    /// its result.
    int Start(std::vector<std::string> words, AppletHandler *entry = Dispatch);

    // --- what the test looks at

    /// The lines of the transcript that begin with one of the words, all unless told otherwise.
    /// Begins with a line end, as a raw string literal does.
    [[nodiscard]] std::string transcript(const std::vector<std::string> &words = {""}) const;
    [[nodiscard]] std::string Read(const std::string &path) const; ///< "(none)" without such a file
    /// The first call that failed on purpose, "" without one: "read /dev/mtd/1 2.3" is the third
    /// read since the second time that this path was opened.
    [[nodiscard]] const std::string &failed() const { return failed_; }

    // --- what the C library calls use

    static FakeBoard *Active();
    /// Adds a line; one that repeats the line before it is counted, and the bytes summed up.
    void Record(const std::string &line, size_t bytes = 0);
    /// Records what a stream puts out. A line that comes in pieces is one line, unless something
    /// else is recorded in between: then the piece stands before it, and ends in "\c".
    void Print(const std::string &stream, const std::string &text);
    void EndPiece();
    bool Fails(const std::string &function, const std::string &path);
    [[nodiscard]] std::string Map(const std::string &path) const;
    int Shell(const std::string &command);
    void Signal(int id, int signal_number);
    bool Unmount(const std::string &path); ///< unless a file on it is open
    [[noreturn]] void Leave(int result);   ///< the call that Run has made
    /// The device behind the path; null for anything else.
    [[nodiscard]] FakeDevice *DeviceAt(const std::string &path) const;

    // Threads run one at a time, each until it pauses: what they do has one order in every run.
    using Turn = std::pair<int64_t, int>; ///< when, and which comes first at that time
    Turn QueueTurn(int64_t microseconds_from_now);
    void PassTurn(); ///< to the earliest one in the queue
    void AwaitTurn(const Turn &turn);
    void Pause(int64_t microseconds);

    std::map<int, OpenFile> open_files;

private:
    struct Line {
        std::string text;
        int count;
        size_t bytes;
    };
    struct Fault {
        std::string function;
        int error;
        int nth;
        std::string path;
    };

    struct Uses {
        int openings = 0;
        std::map<std::string, int> calls; ///< by function, since the last opening
    };

    void Begin();
    void End();

    std::filesystem::path root_;
    std::vector<Line> transcript_;
    std::string piece_; ///< of a line that a stream puts out, with the stream's name
    std::vector<Fault> faults_;
    std::map<std::string, Uses> uses_; ///< by path
    std::string failed_;
    std::FILE *saved_streams_[2] = {};
    sigjmp_buf ended_ = {};
    int open_before_;
    std::mutex mutex_;
    std::condition_variable turn_changed_;
    std::set<Turn> waiting_;
    Turn turn_;
    int turns_ = 0;
};

class BoardTest : public testing::Test
{
protected:
    FakeBoard board;
};

/// The bytes as "0a ff".
std::string Hex(const std::string &bytes);
