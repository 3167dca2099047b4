// Files, directories and devices, as the board has them.
#include <dirent.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/select.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <termios.h>
#include <unistd.h>

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <map>
#include <memory>
#include <vector>

#include "tests/fake_libc.h"

namespace
{

/// The same for a descriptor that is open to read or write; EINVAL from a device that can neither.
FakeDevice *DeviceFor(int fd, int mode)
{
    static FakeDevice refusal;
    const int opened = FileAt(fd).flags & O_ACCMODE;
    return DeviceAt(fd) == nullptr || opened == O_RDWR || opened == mode ? DeviceAt(fd) : &refusal;
}

int RequestOf(const char *function, int fd, unsigned long request, void *argument)
{
    FakeDevice *device = DeviceAt(fd);
    return Fails(function, FileAt(fd).path) ? -1
           : device != nullptr              ? device->Request(FileAt(fd), request, argument)
                                            : (errno = ENOTTY, -1);
}

// A stream on the board's files: the C library's own buffering and error handling, above reads and
// writes that can fail.
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

/// What is left to read of the directories that are open, the next entry last.
std::map<DIR *, std::vector<dirent>> g_listings;

} // namespace

extern "C" {

int open(const char *path, int flags, ...)
{
    if (Active() == nullptr) {
        return openat(AT_FDCWD, path, flags, 0666);
    }
    return OpenOnBoard("open", path, flags);
}

/// Below /proc, the only directory that the program keeps open.
int openat(int directory, const char *path, int flags, ...)
{
    return directory == AT_FDCWD || Active() == nullptr
               ? REAL64(openat)(directory, path, flags, 0666)
               : OpenOnBoard("open", ("/proc/" + std::string{path}).c_str(), flags);
}

int close(int fd)
{
    if (Active() != nullptr) {
        Active()->open_files.erase(fd);
    }
    errno = ENOTRECOVERABLE; // as any call may leave it
    return static_cast<int>(syscall(SYS_close, fd));
}

ssize_t read(int fd, void *buffer, size_t count)
{
    FakeDevice *device = DeviceFor(fd, O_RDONLY);
    return Fails("read", FileAt(fd).path) ? FaultResult()
           : device != nullptr            ? device->Read(FileAt(fd), buffer, count)
                                          : syscall(SYS_read, fd, buffer, count);
}

ssize_t write(int fd, const void *buffer, size_t count)
{
    FakeDevice *device = DeviceFor(fd, O_WRONLY);
    return Fails("write", FileAt(fd).path) ? FaultResult()
           : device != nullptr             ? device->Write(FileAt(fd), buffer, count)
                                           : syscall(SYS_write, fd, buffer, count);
}

int ioctl(int fd, unsigned long request, ...) __THROW
{
    va_list arguments;
    va_start(arguments, request);
    void *argument = va_arg(arguments, void *);
    va_end(arguments);
    return RequestOf("ioctl", fd, request, argument);
}

// To the device, the terminal calls are the requests that the C library makes of them, but for the
// arguments: the C library's own record, and always by its address.

int tcgetattr(int fd, termios *settings) __THROW
{
    return RequestOf("tcgetattr", fd, TCGETS, settings);
}

int tcsetattr(int fd, int when, const termios *settings) __THROW
{
    return RequestOf("tcsetattr", fd, TCSETS + static_cast<unsigned>(when),
                     const_cast<termios *>(settings));
}

int tcflush(int fd, int queue) __THROW
{
    return RequestOf("tcflush", fd, TCFLSH, &queue);
}

int tcdrain(int fd)
{
    return RequestOf("tcdrain", fd, TCSBRK, nullptr);
}

/// Waits for input only. A wait in vain takes 10 ms at least, so that a spinning program gets on.
int select(int count, fd_set *__restrict input, fd_set *__restrict output,
           fd_set *__restrict exceptions, timeval *__restrict timeout)
{
    if (Active() == nullptr) {
        return REAL(select)(count, input, output, exceptions, timeout);
    }
    const int64_t limit = int64_t{timeout->tv_sec} * 1'000'000 + timeout->tv_usec;
    Board().Record("select " + std::to_string(limit));
    if (Fails("select")) {
        return -1;
    }
    int ready = 0;
    for (int fd = 0; fd < count; ++fd) {
        if (FD_ISSET(fd, input)) {
            FakeDevice *device = DeviceAt(fd);
            const bool has_input = device != nullptr && device->HasInput();
            has_input ? ++ready : (FD_CLR(fd, input), 0);
        }
    }
    if (ready == 0) {
        Board().Pause(std::max<int64_t>(limit, 10'000));
    }
    return ready;
}

off_t lseek(int fd, off_t offset, int origin) __THROW
{
    if (DeviceAt(fd) == nullptr) {
        return REAL64(lseek)(fd, offset, origin);
    }
    FileAt(fd).position = static_cast<size_t>(offset); // from the beginning
    return offset;
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
    std::vector<dirent> &listing = g_listings[directory];
    while (const dirent *entry = REAL64(readdir)(directory)) {
        dirent copy{}; // of a record that is only as long as its name needs
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
    if (listing->second.empty()) {
        return nullptr;
    }
    static dirent entry;
    entry = listing->second.back();
    listing->second.pop_back();
    return &entry;
}

int closedir(DIR *directory)
{
    g_listings.erase(directory);
    const int result = REAL(closedir)(directory);
    return Fails("closedir") ? -1 : result;
}

// Calls that may fail on purpose and otherwise do what they always do.
#define FAILING(type, function, parameters, path, call)                                            \
    type function parameters __THROW                                                               \
    {                                                                                              \
        return Fails(#function, path) ? -1 : call;                                                 \
    }
FAILING(int, access, (const char *path, int mode), path, REAL(access)(MapPath(path).c_str(), mode))
FAILING(int, fstat, (int fd, struct stat *status), FileAt(fd).path, REAL64(fstat)(fd, status))
FAILING(int, rename, (const char *from, const char *to), from,
        REAL(rename)(MapPath(from).c_str(), MapPath(to).c_str()))
FAILING(int, remove, (const char *path), path, REAL(remove)(MapPath(path).c_str()))
FAILING(int, pipe, (int ends[2]), "", REAL(pipe)(ends))
FAILING(pid_t, fork, (), "", REAL(fork)())

int poll(pollfd *state, nfds_t count, int timeout)
{
    if (Active() == nullptr) {
        return REAL(poll)(state, count, timeout);
    }
    if (Fails("poll", FileAt(state->fd).path)) {
        return -1;
    }
    state->revents = DeviceAt(state->fd)->Poll(timeout);
    return state->revents != 0 ? 1 : 0;
}
}
