// The C library calls with outside effects, on the fake board. A definition in an executable
// overrides the shared library's, so the program needs no hooks for its tests.
#include <arpa/inet.h>
#include <dirent.h>
#include <dlfcn.h>
#include <pthread.h>
#include <signal.h>
#include <sys/ioctl.h>
#include <sys/mount.h>
#include <sys/select.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/time.h>
#include <syslog.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <utility>

#include "tests/fake_board.h"

namespace
{

template<typename Function>
Function *Real(Function * /*type*/, const char *name)
{
    return reinterpret_cast<Function *>(dlsym(RTLD_NEXT, name));
}
#define REAL(function) Real(&function, #function)
// Calls that the headers rename on systems with 64-bit file offsets.
#define REAL64(function) Real(&function, #function "64")

constexpr auto Active = FakeBoard::Active;
constexpr const char *kDatagrams = "socket";      // the path of a datagram socket
constexpr const char *kPackets = "packet socket"; // and of a packet socket, which is also a device

/// The board, for calls that must never reach the machine that the tests run on.
FakeBoard &Board()
{
    return Active() != nullptr ? *Active() : (std::abort(), *Active());
}

bool Fails(const char *function, const std::string &path = "")
{
    return Active() != nullptr && Active()->Fails(function, path);
}

/// The result of a call that is made to fail.
int FaultResult()
{
    return errno == 0 ? 0 : -1;
}

int FailWith(int error)
{
    errno = error;
    return -1;
}

std::string MapPath(const char *path)
{
    return Active() != nullptr ? Active()->Map(path) : path;
}

/// An open file of the program. For any other descriptor, a file without a path.
OpenFile &FileAt(int fd)
{
    static OpenFile other;
    return Active() != nullptr && Active()->open_files.contains(fd) ? Active()->open_files[fd]
                                                                    : other;
}

Device *DeviceAt(int fd)
{
    return Active() != nullptr ? Active()->DeviceAt(FileAt(fd).path) : nullptr;
}

bool IsSocket(int fd)
{
    return FileAt(fd).path == kDatagrams || FileAt(fd).path == kPackets;
}

/// Whether the descriptor is open to read, or to write.
bool MayUse(int fd, int mode)
{
    const int opened = FileAt(fd).flags & O_ACCMODE;
    return opened == O_RDWR || opened == mode;
}

int Took(int fd, const char *path, int flags = O_RDWR)
{
    if (fd >= 0) {
        Board().open_files[fd] = {path, flags};
    }
    return fd;
}

int OpenReally(const char *path, int flags)
{
    return static_cast<int>(syscall(SYS_openat, AT_FDCWD, path, flags, 0666));
}

/// A path that is no device of the board is a file. The transcript shows a device that is opened
/// in a special way.
int OpenOnBoard(const char *function, const char *path, int flags)
{
    if (Fails(function, path)) {
        return -1;
    }
    const bool is_device = Board().DeviceAt(path) != nullptr;
    const int special = flags & ~(O_ACCMODE | O_CREAT | O_CLOEXEC | O_LARGEFILE);
    if (is_device && special != 0) {
        const bool is_serial = special == (O_NOCTTY | O_NONBLOCK);
        Board().Record("open " + std::string{path} +
                       (is_serial ? " noctty nonblock" : " " + std::to_string(special)));
    }
    return Took(OpenReally(is_device ? "/dev/null" : MapPath(path).c_str(), flags), path, flags);
}

int Terminal(int fd, unsigned long request, void *argument)
{
    return DeviceAt(fd) == nullptr ? FailWith(ENOTTY) : DeviceAt(fd)->Terminal(request, argument);
}

// A stream on the board's files. It has the C library's own buffering and error handling; its reads
// and writes can be made to fail.
struct Stream {
    int fd;
    std::string path;
};

ssize_t ReadStream(void *cookie, char *buffer, size_t count)
{
    const auto *stream = static_cast<Stream *>(cookie);
    return Fails("fread", stream->path) ? FaultResult()
                                        : syscall(SYS_read, stream->fd, buffer, count);
}

ssize_t WriteStream(void *cookie, const char *buffer, size_t count)
{
    const auto *stream = static_cast<Stream *>(cookie);
    return Fails("fwrite", stream->path) ? 0 : syscall(SYS_write, stream->fd, buffer, count);
}

int SeekStream(void *cookie, off_t *offset, int origin)
{
    const auto *stream = static_cast<Stream *>(cookie);
    *offset = Fails("fseek", stream->path) ? -1 : lseek64(stream->fd, *offset, origin);
    return *offset < 0 ? -1 : 0;
}

int CloseStream(void *cookie)
{
    const std::unique_ptr<Stream> stream{static_cast<Stream *>(cookie)};
    close(stream->fd);
    return Fails("fclose", stream->path) ? -1 : 0;
}

/// The unread entries of the open directories, the next entry last.
std::map<DIR *, std::vector<dirent>> g_listings;

std::string AddressText(const sockaddr *address)
{
    if (address->sa_family == AF_PACKET) {
        return {address->sa_data, strnlen(address->sa_data, sizeof address->sa_data)};
    }
    sockaddr_in to{};
    std::memcpy(&to, address, sizeof to);
    return inet_ntoa(to.sin_addr) + (":" + std::to_string(ntohs(to.sin_port)));
}

int OpenSocket(int domain, int type, int protocol)
{
    const std::string kind =
        std::to_string(type) + " " + std::to_string(ntohs(static_cast<uint16_t>(protocol)));
    if (domain == AF_PACKET) {
        Board().Record("packet socket " + kind);
    } else if (domain != AF_INET || (type & ~SOCK_CLOEXEC) != SOCK_DGRAM || protocol != 0) {
        return FailWith(EPROTONOSUPPORT);
    }
    const int fd = REAL(socket)(AF_INET, SOCK_DGRAM, 0);
    return Took(fd, domain == AF_PACKET ? kPackets : kDatagrams);
}

ssize_t Send(int fd, std::string bytes, int flags, const sockaddr *address)
{
    if (!IsSocket(fd) || flags != 0) {
        return FailWith(ENOTSOCK);
    }
    bytes.resize(std::min(bytes.size(), Board().longest_send));
    Board().datagrams.push_back(bytes);
    Board().Record("send " + AddressText(address) + " " + Hex(bytes));
    return static_cast<ssize_t>(bytes.size());
}

ssize_t Receive(int fd, void *buffer, size_t count, int flags)
{
    if (!IsSocket(fd) || flags != 0 || Board().datagrams.empty()) {
        return FailWith(ENOTSOCK);
    }
    const std::string datagram = Board().datagrams.front();
    Board().datagrams.pop_front();
    return static_cast<ssize_t>(datagram.copy(static_cast<char *>(buffer), count));
}

/// For select: leaves the descriptors in `input` that have input. A wait without input takes at
/// least 10 ms, so that a spinning program reaches its time limit.
int AwaitInput(int count, fd_set *input, int64_t limit)
{
    int ready = 0;
    for (int fd = 0; fd < count; ++fd) {
        if (FD_ISSET(fd, input)) {
            const bool has_input = DeviceAt(fd) != nullptr && !DeviceAt(fd)->input.empty();
            has_input ? ++ready : (FD_CLR(fd, input), 0);
        }
    }
    if (ready == 0) {
        Board().Pause(std::max<int64_t>(limit, 10'000));
    }
    return ready;
}

int PollOne(pollfd &state, int timeout)
{
    state.revents = 0;
    if (Fails("poll", FileAt(state.fd).path)) {
        return -1;
    }
    state.revents = DeviceAt(state.fd)->Poll(timeout);
    return state.revents != 0 ? 1 : 0;
}

} // namespace

/// Defines a call that can be made to fail, and its normal effect. It can be declared noexcept.
#define FAKE(type, function, parameters, throws, path, otherwise)                                  \
    type function parameters throws                                                                \
    {                                                                                              \
        return Fails(#function, path) ? FaultResult() : (otherwise);                               \
    }

extern "C" {

// --- files and devices

FAKE(ssize_t, read, (int fd, void *buffer, size_t count), , FileAt(fd).path,
     DeviceAt(fd) == nullptr ? syscall(SYS_read, fd, buffer, count)
     : MayUse(fd, O_RDONLY)  ? DeviceAt(fd)->Read(FileAt(fd), buffer, count)
                             : FailWith(EBADF))
FAKE(ssize_t, recv, (int fd, void *buffer, size_t count, int flags), , FileAt(fd).path,
     flags == 0 ? DeviceAt(fd)->Read(FileAt(fd), buffer, count) : FailWith(EINVAL))
// Where times have 64 bits too, the headers give fstat a third name. fstatat does the same.
FAKE(int, fstat, (int fd, struct stat *status), __THROW, FileAt(fd).path,
     fstatat(fd, "", status, AT_EMPTY_PATH))
FAKE(int, access, (const char *path, int mode), __THROW, path,
     REAL(access)(MapPath(path).c_str(), mode))
FAKE(int, remove, (const char *path), __THROW, path, REAL(remove)(MapPath(path).c_str()))
FAKE(int, rename, (const char *from, const char *to), __THROW, from,
     REAL(rename)(MapPath(from).c_str(), MapPath(to).c_str()))
FAKE(int, tcgetattr, (int fd, termios *settings), __THROW, FileAt(fd).path,
     Terminal(fd, TCGETS, settings))
FAKE(int, tcsetattr, (int fd, int when, const termios *settings), __THROW, FileAt(fd).path,
     Terminal(fd, TCSETS + static_cast<unsigned>(when), const_cast<termios *>(settings)))
FAKE(int, tcflush, (int fd, int queue), __THROW, FileAt(fd).path, Terminal(fd, TCFLSH, &queue))
FAKE(int, tcdrain, (int fd), , FileAt(fd).path, Terminal(fd, TCSBRK, nullptr))
FAKE(int, umount, (const char *path), __THROW, path, Board().Unmount(path) ? 0 : FailWith(EBUSY))
FAKE(pid_t, fork, (), __THROW, "", REAL(fork)())

int open(const char *path, int flags, ...)
{
    return Active() != nullptr ? OpenOnBoard("open", path, flags) : OpenReally(path, flags);
}

int openat(int fd, const char *path, int flags, ...)
{
    for (const auto &[directory, name] : g_listings) {
        if (Active() != nullptr && dirfd(directory) == fd) {
            const std::string parent = Active()->open_directories[directory];
            return OpenOnBoard("open", (parent + "/" + path).c_str(), flags);
        }
    }
    return static_cast<int>(syscall(SYS_openat, fd, path, flags, 0666));
}

int close(int fd)
{
    if (Active() != nullptr) {
        Active()->open_files.erase(fd);
    }
    errno = ENOTRECOVERABLE; // as any call may leave it
    return static_cast<int>(syscall(SYS_close, fd));
}

ssize_t write(int fd, const void *buffer, size_t count)
{
    Device *device = DeviceAt(fd);
    if (Fails("write", FileAt(fd).path)) {
        return FaultResult();
    }
    if (FileAt(fd).path == "pipe" && count <= SSIZE_MAX) {
        Board().Record("write pipe " + Hex({static_cast<const char *>(buffer), count}));
    }
    return device == nullptr      ? syscall(SYS_write, fd, buffer, count)
           : MayUse(fd, O_WRONLY) ? device->Write(FileAt(fd), buffer, count)
                                  : FailWith(EBADF);
}

int ioctl(int fd, unsigned long request, ...) __THROW
{
    va_list arguments;
    va_start(arguments, request);
    void *argument = va_arg(arguments, void *);
    va_end(arguments);
    return Fails("ioctl", FileAt(fd).path) ? -1
           : DeviceAt(fd) == nullptr       ? FailWith(ENOTTY)
                                           : DeviceAt(fd)->Request(FileAt(fd), request, argument);
}

int select(int count, fd_set *__restrict input, fd_set *__restrict /*output*/,
           fd_set *__restrict /*exceptions*/, timeval *__restrict timeout)
{
    const int64_t limit = int64_t{timeout->tv_sec} * 1'000'000 + timeout->tv_usec;
    Board().Record("select " + std::to_string(limit));
    return Fails("select") ? -1 : AwaitInput(count, input, limit);
}

int poll(pollfd *states, nfds_t count, int timeout)
{
    return Active() == nullptr ? REAL(poll)(states, count, timeout) : PollOne(*states, timeout);
}

off_t lseek(int fd, off_t offset, int origin) __THROW
{
    if (DeviceAt(fd) == nullptr) {
        return REAL64(lseek)(fd, offset, origin);
    }
    FileAt(fd).position = static_cast<size_t>(offset); // from the beginning
    return Fails("lseek", FileAt(fd).path) ? -1 : offset;
}

std::FILE *fopen(const char *path, const char *mode)
{
    if (Active() == nullptr) {
        return REAL64(fopen)(path, mode);
    }
    const int flags = mode[0] == 'r' ? O_RDONLY : O_WRONLY | O_CREAT | O_TRUNC;
    const int fd = OpenOnBoard("fopen", path, flags);
    return fd < 0 ? nullptr
                  : fopencookie(new Stream{fd, path}, mode,
                                {ReadStream, WriteStream, SeekStream, CloseStream});
}

DIR *opendir(const char *path)
{
    DIR *directory = Fails("opendir", path) ? nullptr : REAL(opendir)(MapPath(path).c_str());
    if (directory == nullptr || Active() == nullptr) {
        return directory;
    }
    Active()->open_directories[directory] = path;
    std::vector<dirent> &listing = g_listings[directory];
    while (const dirent *entry = REAL64(readdir)(directory)) {
        dirent copy{}; // the record itself is only as long as its name
        std::memcpy(&copy, entry, std::min(size_t{entry->d_reclen}, sizeof copy));
        listing.push_back(copy);
    }
    std::ranges::sort(listing, [](const dirent &left, const dirent &right) {
        return std::strcmp(left.d_name, right.d_name) > 0;
    });
    return directory;
}

dirent *readdir(DIR *directory)
{
    const auto listing = g_listings.find(directory);
    if (listing == g_listings.end()) {
        return REAL64(readdir)(directory);
    }
    static dirent entry;
    if (listing->second.empty()) {
        return nullptr;
    }
    entry = listing->second.back();
    listing->second.pop_back();
    return &entry;
}

int closedir(DIR *directory)
{
    g_listings.erase(directory);
    if (Active() != nullptr) {
        Active()->open_directories.erase(directory);
    }
    const int result = REAL(closedir)(directory);
    return Fails("closedir") ? -1 : result;
}

int pipe(int ends[2]) __THROW
{
    if (Fails("pipe") || REAL(pipe)(ends) != 0) {
        return -1;
    }
    return Active() == nullptr ? 0 : (Took(ends[0], "pipe"), Took(ends[1], "pipe"), 0);
}

int mount(const char *source, const char *target, const char *type, unsigned long flags,
          const void *data) __THROW
{
    Board().Record("mount " + std::string{source} + " " + target + " " + type + " flags " +
                   std::to_string(flags) + (data != nullptr ? " data" : ""));
    return Fails("mount", target) ? -1 : 0;
}

// --- processes and time

void exit(int status) __THROW
{
    if (Active() == nullptr) {
        REAL(exit)(status);
    }
    Board().Record("exit " + std::to_string(status & 0xFF));
    Board().Leave();
}

int kill(pid_t id, int signal_number) __THROW
{
    Board().Kill(id, signal_number);
    return Fails("kill") ? -1 : 0;
}

sighandler_t signal(int number, sighandler_t handler) __THROW
{
    Board().Record("signal " + std::to_string(number) +
                   (handler == SIG_IGN ? " ignored" : " handled"));
    return std::exchange(Board().signal_handlers[number], handler);
}

int system(const char *command)
{
    return Board().Shell(command);
}

unsigned sleep(unsigned seconds)
{
    Board().Record("sleep " + std::to_string(seconds));
    Board().Pause(int64_t{seconds} * 1'000'000);
    return 0;
}

int usleep(useconds_t microseconds)
{
    Board().Record("usleep " + std::to_string(microseconds));
    // A pause of zero stands for the time of the scan before it.
    Board().Pause(microseconds == 0 ? 10'000 : microseconds);
    return 0;
}

int gettimeofday(timeval *__restrict now, void *__restrict /*zone*/) __THROW
{
    now->tv_sec = static_cast<time_t>(Board().clock / 1'000'000);
    now->tv_usec = static_cast<suseconds_t>(Board().clock % 1'000'000);
    return 0;
}

void syslog(int priority, const char *format, ...)
{
    char text[512];
    va_list arguments;
    va_start(arguments, format);
    std::vsnprintf(text, sizeof text, format, arguments);
    va_end(arguments);
    const bool is_known = priority == LOG_ALERT || priority == LOG_INFO;
    const char *level = !is_known ? "other " : priority == LOG_ALERT ? "alert " : "info ";
    Board().Record(std::string{"syslog "} + level + text);
    errno = ENOTRECOVERABLE; // as any call may leave it
}

/// The second thread. There can be only one.
int pthread_create(pthread_t *__restrict /*thread*/, const pthread_attr_t *__restrict attributes,
                   void *(*body)(void *), void *__restrict argument) __THROW
{
    if (Fails("pthread_create")) {
        return errno;
    }
    int state = 0;
    pthread_attr_getdetachstate(attributes, &state);
    Board().Record(state == PTHREAD_CREATE_DETACHED ? "thread detached" : "thread");
    Board().StartWorker(body, argument);
    return 0;
}

// --- the network

int socket(int domain, int type, int protocol) __THROW
{
    return Fails("socket") ? -1 : OpenSocket(domain, type, protocol);
}

int setsockopt(int fd, int level, int name, const void *value, socklen_t size) __THROW
{
    const bool reuse = level == SOL_SOCKET && name == SO_REUSEADDR && size == sizeof(int) &&
                       *static_cast<const int *>(value) == 1 && IsSocket(fd);
    Board().Record(reuse ? "reuse address" : "some option");
    return Fails("setsockopt") ? -1 : 0;
}

int bind(int fd, const sockaddr *address, socklen_t size) __THROW
{
    Board().Record("bind " + AddressText(address));
    return Fails("bind") ? -1 : IsSocket(fd) && size == 16 ? 0 : FailWith(ENOTSOCK);
}

ssize_t sendto(int fd, const void *buffer, size_t count, int flags, const sockaddr *address,
               socklen_t /*size*/)
{
    Board().clock += Board().send_time;
    return Fails("sendto") ? FaultResult()
                           : Send(fd, {static_cast<const char *>(buffer), count}, flags, address);
}

ssize_t recvfrom(int fd, void *buffer, size_t count, int flags, sockaddr * /*address*/,
                 socklen_t * /*size*/)
{
    return Fails("recvfrom") ? FaultResult() : Receive(fd, buffer, count, flags);
}
}
