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
#include <utility>

#include "tests/fake_board.h"

namespace
{

template<typename Function>
Function *Real(Function * /*type*/, const char *name)
{
    return reinterpret_cast<Function *>(dlsym(RTLD_NEXT, name));
}
#define REAL(function) Real(&(function), #function)
// Calls that the headers rename on systems with 64-bit file offsets.
#define REAL64(function) Real(&(function), #function "64")

/// The board, for calls that must never reach the machine that the tests run on.
FakeBoard &Board()
{
    return g_board != nullptr ? *g_board : (std::abort(), *g_board);
}

bool Fails(const char *function, const std::string &path)
{
    return g_board != nullptr && g_board->Fails(function, path);
}

/// The result of a call that is made to fail.
int FaultResult()
{
    return errno == 0 ? 0 : -1;
}

/// An open file of the program. For any other descriptor, a file without a path.
OpenFile &FileAt(int fd)
{
    static OpenFile other{};
    return g_board != nullptr && g_board->open_files.contains(fd) ? g_board->open_files[fd] : other;
}

Node *NodeAt(int fd)
{
    return g_board != nullptr ? g_board->NodeAt(FileAt(fd).path) : nullptr;
}

bool IsSocket(int fd)
{
    return NodeAt(fd) != nullptr && NodeAt(fd)->kind == Node::kSocket;
}

/// Whether the descriptor is open to read, or to write.
bool MayUse(int fd, int mode)
{
    const int opened = FileAt(fd).flags & O_ACCMODE;
    return opened == O_RDWR || opened == mode;
}

int Took(int fd, const std::string &path, int flags = O_RDWR)
{
    if (fd >= 0 && g_board != nullptr) { // sanitizers and fuzzer call pipe for their reports
        g_board->open_files[fd] = {path, flags};
    }
    return fd;
}

int OpenReally(const std::string &path, int flags)
{
    return static_cast<int>(syscall(SYS_openat, AT_FDCWD, path.c_str(), flags, 0666));
}

/// The transcript shows a device that is opened in a special way.
int OpenOnBoard(const std::string &path, int flags)
{
    if ((flags & O_TRUNC) != 0) {
        Board().Write(path, "");
    }
    if (Board().NodeAt(path) == nullptr) {
        return FailWith(ENOENT);
    }
    const int special = flags & ~(O_ACCMODE | O_CREAT | O_TRUNC | O_CLOEXEC | O_LARGEFILE);
    if (special != 0) {
        const bool is_serial = special == (O_NOCTTY | O_NONBLOCK);
        Board().Record("open " + path +
                       (is_serial ? " noctty nonblock" : " " + std::to_string(special)));
    }
    return Took(OpenReally("/dev/null", O_RDWR), path, flags);
}

/// From the beginning or from the current position.
off_t Seek(OpenFile &file, off_t offset, int origin)
{
    offset += origin == SEEK_CUR ? static_cast<off_t>(file.position) : 0;
    if (offset < 0) {
        return FailWith(EINVAL);
    }
    file.position = static_cast<size_t>(offset);
    return offset;
}

int Rename(const std::string &from, const std::string &to)
{
    auto node = Board().nodes.extract(from);
    if (node.empty()) {
        return FailWith(ENOENT);
    }
    Board().nodes[to] = std::move(node.mapped());
    return 0;
}

int Terminal(int fd, unsigned long request, void *argument)
{
    return NodeAt(fd) == nullptr ? FailWith(ENOTTY) : NodeAt(fd)->Terminal(request, argument);
}

/// A descriptor in place of a pointer. That of -1 is null.
void *CookieOf(int fd)
{
    return reinterpret_cast<void *>(intptr_t{fd} + 1); // NOLINT(performance-no-int-to-ptr)
}

int FdOf(void *cookie)
{
    return static_cast<int>(reinterpret_cast<intptr_t>(cookie)) - 1;
}

// A stream on the board's files. It has the C library's own buffering and error handling.

ssize_t ReadStream(void *cookie, char *buffer, size_t count)
{
    return read(FdOf(cookie), buffer, count);
}

ssize_t WriteStream(void *cookie, const char *buffer, size_t count)
{
    return std::max<ssize_t>(write(FdOf(cookie), buffer, count), 0);
}

int SeekStream(void *cookie, off_t *offset, int origin)
{
    *offset = lseek(FdOf(cookie), *offset, origin);
    return *offset < 0 ? -1 : 0;
}

int CloseStream(void *cookie)
{
    return close(FdOf(cookie));
}

std::string AddressText(const sockaddr *address)
{
    if (address->sa_family == AF_PACKET) {
        return {address->sa_data, strnlen(address->sa_data, sizeof address->sa_data)};
    }
    sockaddr_in to{};
    std::memcpy(&to, address, sizeof to);
    return inet_ntoa(to.sin_addr) + (":" + std::to_string(ntohs(to.sin_port)));
}

/// The name of a socket is that of its kind.
int OpenSocket(int domain, int type, int protocol)
{
    if (domain == AF_PACKET) {
        Board().Record("packet socket " + std::to_string(type) + " " +
                       std::to_string(ntohs(static_cast<uint16_t>(protocol))));
    } else if (domain != AF_INET || (type & ~SOCK_CLOEXEC) != SOCK_DGRAM || protocol != 0) {
        return FailWith(EPROTONOSUPPORT);
    }
    return Took(OpenReally("/dev/null", O_RDWR), domain == AF_PACKET ? "packet" : "socket");
}

/// A listing in the order of the names.
DIR *OpenDirectory(const std::string &path)
{
    const int fd = Took(OpenReally("/dev/null", O_RDONLY), path);
    const auto &nodes = Board().nodes;
    FileAt(fd).unread = {".", ".."};
    for (auto node = nodes.lower_bound(path + "/");
         node != nodes.end() && node->first.starts_with(path + "/"); ++node) {
        const std::string below = node->first.substr(path.size() + 1);
        FileAt(fd).unread.insert(below.substr(0, below.find('/')));
    }
    return static_cast<DIR *>(CookieOf(fd));
}

dirent *ReadDirectory(std::set<std::string> &unread)
{
    static dirent entry;
    if (unread.empty()) {
        return nullptr;
    }
    const std::string name = unread.extract(unread.begin()).value();
    entry.d_name[name.copy(entry.d_name, sizeof entry.d_name - 1)] = '\0';
    return &entry;
}

/// For select on one descriptor. A wait without input takes at least 10 ms, so that a spinning
/// program reaches its time limit.
int AwaitInput(int fd, fd_set *input, const timeval &timeout)
{
    const int64_t limit = int64_t{timeout.tv_sec} * 1'000'000 + timeout.tv_usec;
    Board().Record("select " + std::to_string(limit));
    if (FD_ISSET(fd, input) && !NodeAt(fd)->input.empty()) {
        return 1;
    }
    FD_ZERO(input);
    Board().Pause(std::max<int64_t>(limit, 10'000));
    return 0;
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
     NodeAt(fd) == nullptr  ? syscall(SYS_read, fd, buffer, count)
     : MayUse(fd, O_RDONLY) ? NodeAt(fd)->Read(FileAt(fd), buffer, count)
                            : FailWith(EBADF))
FAKE(ssize_t, write, (int fd, const void *buffer, size_t count), , FileAt(fd).path,
     NodeAt(fd) == nullptr                        ? syscall(SYS_write, fd, buffer, count)
     : MayUse(fd, O_WRONLY) && count <= SSIZE_MAX ? NodeAt(fd)->Write(FileAt(fd), buffer, count)
                                                  : FailWith(EBADF))
FAKE(off_t, lseek, (int fd, off_t offset, int origin), __THROW, FileAt(fd).path,
     NodeAt(fd) == nullptr ? REAL64(lseek)(fd, offset, origin) : Seek(FileAt(fd), offset, origin))
// Where times have 64 bits too, the headers give fstat a third name. fstatat does the same.
FAKE(int, fstat, (int fd, struct stat *status), __THROW, FileAt(fd).path,
     NodeAt(fd) == nullptr ? fstatat(fd, "", status, AT_EMPTY_PATH)
                           : (status->st_size = static_cast<off_t>(NodeAt(fd)->bytes.size()), 0))
FAKE(int, access, (const char *path, int mode), __THROW, path,
     g_board == nullptr                ? REAL(access)(path, mode)
     : Board().NodeAt(path) != nullptr ? 0
                                       : FailWith(ENOENT))
FAKE(int, remove, (const char *path), __THROW, path, (Board().Remove(path), 0))
FAKE(int, rename, (const char *from, const char *to), __THROW, from, Rename(from, to))
FAKE(int, tcgetattr, (int fd, termios *settings), __THROW, FileAt(fd).path,
     Terminal(fd, TCGETS, settings))
FAKE(int, tcsetattr, (int fd, int when, const termios *settings), __THROW, FileAt(fd).path,
     Terminal(fd, TCSETS + static_cast<unsigned>(when), const_cast<termios *>(settings)))
FAKE(int, tcflush, (int fd, int queue), __THROW, FileAt(fd).path, Terminal(fd, TCFLSH, &queue))
FAKE(int, tcdrain, (int fd), , FileAt(fd).path, Terminal(fd, TCSBRK, nullptr))
FAKE(int, select,
     (int count, fd_set *__restrict input, fd_set *__restrict, fd_set *__restrict,
      timeval *__restrict timeout),
     , "", AwaitInput(count - 1, input, *timeout))
FAKE(int, poll, (pollfd * states, nfds_t count, int timeout), , "",
     g_board == nullptr ? REAL(poll)(states, count, timeout)
                        : NodeAt(states->fd)->Poll(*states, timeout))
FAKE(int, setvbuf, (std::FILE * stream, char *buffer, int mode, size_t size), __THROW, "",
     (g_board != nullptr && mode == _IOLBF ? Board().Record("line-buffered") : 0,
      REAL(setvbuf)(stream, buffer, mode, size)))
FAKE(int, mount,
     (const char *source, const char *target, const char *type, unsigned long flags,
      const void *data),
     __THROW, target,
     Board().Record("mount " + std::string{source} + " " + target + " " + type + " flags " +
                    std::to_string(flags) + (data != nullptr ? " data" : "")))
FAKE(int, umount, (const char *path), __THROW, path, Board().Unmount(path) ? 0 : FailWith(EBUSY))

FAKE(int, open, (const char *path, int flags, ...), , path,
     g_board != nullptr ? OpenOnBoard(path, flags) : OpenReally(path, flags))

int openat(int fd, const char *path, int flags, ...)
{
    return FileAt(fd).path.empty() ? static_cast<int>(syscall(SYS_openat, fd, path, flags, 0666))
                                   : open((FileAt(fd).path + "/" + path).c_str(), flags);
}

int close(int fd)
{
    const std::string path = FileAt(fd).path;
    if (g_board != nullptr) {
        g_board->open_files.erase(fd);
    }
    const int result = static_cast<int>(syscall(SYS_close, fd));
    errno = ENOTRECOVERABLE; // as any call may leave it
    return Fails("close", path) ? -1 : result;
}

int ioctl(int fd, unsigned long request, ...) __THROW
{
    va_list arguments;
    va_start(arguments, request);
    void *argument = va_arg(arguments, void *);
    va_end(arguments);
    return Fails("ioctl", FileAt(fd).path) ? -1
           : NodeAt(fd) == nullptr         ? FailWith(ENOTTY)
                                           : NodeAt(fd)->Request(FileAt(fd), request, argument);
}

std::FILE *fopen(const char *path, const char *mode)
{
    if (g_board == nullptr) {
        return REAL64(fopen)(path, mode);
    }
    const int fd = open(path, mode[0] == 'r' ? O_RDONLY : O_WRONLY | O_CREAT | O_TRUNC);
    return fd < 0 ? nullptr
                  : fopencookie(CookieOf(fd), mode,
                                {ReadStream, WriteStream, SeekStream, CloseStream});
}

DIR *opendir(const char *path)
{
    return g_board == nullptr       ? REAL(opendir)(path)
           : Fails("opendir", path) ? nullptr
                                    : OpenDirectory(path);
}

int dirfd(DIR *directory) __THROW
{
    return g_board == nullptr ? REAL(dirfd)(directory) : FdOf(directory);
}

dirent *readdir(DIR *directory)
{
    return g_board == nullptr ? REAL64(readdir)(directory)
                              : ReadDirectory(FileAt(FdOf(directory)).unread);
}

int closedir(DIR *directory)
{
    if (g_board == nullptr) {
        return REAL(closedir)(directory);
    }
    return close(FdOf(directory)) != 0 || Fails("closedir", "") ? -1 : 0;
}

// --- processes and time

FAKE(pid_t, fork, (), __THROW, "", REAL(fork)())
FAKE(int, pipe, (int ends[2]), __THROW, "",
     REAL(pipe)(ends) == 0 ? (Took(ends[0], "pipe"), Took(ends[1], "pipe"), 0) : -1)
FAKE(int, kill, (pid_t id, int signal_number), __THROW, "", Board().Kill(id, signal_number))

void exit(int status) __THROW
{
    if (g_board == nullptr) {
        REAL(exit)(status);
    }
    Board().Record("exit " + std::to_string(status & 0xFF));
    Board().Leave();
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
    if (Fails("pthread_create", "")) {
        return errno;
    }
    int state = 0;
    pthread_attr_getdetachstate(attributes, &state);
    Board().Record(state == PTHREAD_CREATE_DETACHED ? "thread detached" : "thread");
    Board().StartWorker([=] { body(argument); });
    return 0;
}

// --- the network

FAKE(int, socket, (int domain, int type, int protocol), __THROW, "",
     OpenSocket(domain, type, protocol))
FAKE(int, setsockopt, (int fd, int level, int name, const void *value, socklen_t size), __THROW, "",
     IsSocket(fd) && level == SOL_SOCKET && name == SO_REUSEADDR && size == sizeof(int) &&
             *static_cast<const int *>(value) == 1
         ? Board().Record("reuse address")
         : FailWith(EINVAL))
FAKE(int, bind, (int fd, const sockaddr *address, socklen_t size), __THROW, "",
     IsSocket(fd) && size == 16 ? Board().Record("bind " + AddressText(address))
                                : FailWith(ENOTSOCK))
FAKE(ssize_t, recv, (int fd, void *buffer, size_t count, int flags), , FileAt(fd).path,
     IsSocket(fd) && flags == 0 ? NodeAt(fd)->Read(FileAt(fd), buffer, count) : FailWith(ENOTSOCK))
FAKE(ssize_t, recvfrom,
     (int fd, void *buffer, size_t count, int flags, sockaddr *address, socklen_t *), ,
     FileAt(fd).path, address == nullptr ? recv(fd, buffer, count, flags) : FailWith(EINVAL))

ssize_t sendto(int fd, const void *buffer, size_t count, int flags, const sockaddr *address,
               socklen_t size)
{
    if (!IsSocket(fd) || flags != 0 || size != 16) {
        return FailWith(ENOTSOCK);
    }
    Node &line = *NodeAt(fd);
    Board().clock += line.send_time;
    if (Fails("sendto", FileAt(fd).path)) {
        return FaultResult();
    }
    const std::string sent{static_cast<const char *>(buffer), std::min(count, line.transfer)};
    if (address->sa_family == AF_INET) { // sent to ourselves
        line.input.push_back({sent});
    }
    Board().Record("send " + AddressText(address) + " " + Hex(sent));
    return static_cast<ssize_t>(sent.size());
}
}
