// Mounts, processes, time, the log, the network and threads, as the board has them.
#include <arpa/inet.h>
#include <pthread.h>
#include <signal.h>
#include <sys/mount.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <syslog.h>
#include <unistd.h>

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <memory>

#include "tests/fake_libc.h"

namespace
{

struct NewThread {
    FakeBoard *board;
    FakeBoard::Turn turn;
    void *(*body)(void *);
    void *argument;
};

void *ThreadMain(void *memory)
{
    const std::unique_ptr<NewThread> thread{static_cast<NewThread *>(memory)};
    thread->board->AwaitTurn(thread->turn);
    void *result = thread->body(thread->argument);
    thread->board->PassTurn();
    return result;
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

} // namespace

extern "C" {

int mount(const char *source, const char *target, const char *type, unsigned long flags,
          const void *data) __THROW
{
    Board().Record("mount " + std::string{source} + " " + target + " " + type + " flags " +
                   std::to_string(flags) + (data != nullptr ? " data" : ""));
    return Fails("mount", target) ? -1 : 0;
}

int umount(const char *path) __THROW
{
    if (Board().Fails("umount", path)) {
        return -1;
    }
    return Board().Unmount(path) ? 0 : (errno = EBUSY, -1);
}

void exit(int status) __THROW
{
    if (Active() == nullptr) {
        REAL(exit)(status);
    }
    Board().Leave(FakeBoard::kExited + (status & 0xFF));
}

int kill(pid_t id, int signal_number) __THROW
{
    Board().Signal(id, signal_number);
    return Fails("kill") ? -1 : 0;
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
    // A pause of nothing stands for the time of the scan that it ends.
    Board().Pause(microseconds == 0 ? 10'000 : microseconds);
    return 0;
}

int gettimeofday(timeval *__restrict now, void *__restrict zone) __THROW
{
    if (Active() == nullptr) {
        return REAL(gettimeofday)(now, zone);
    }
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
    std::string line = text;
    for (size_t at = 0; (at = line.find('\n', at)) != std::string::npos; at += 2) {
        line.replace(at, 1, "\\n");
    }
    const char *level = priority == LOG_ALERT  ? "alert "
                        : priority == LOG_INFO ? "info "
                                               : "other ";
    Board().Record(std::string{"syslog "} + level + line);
    errno = ENOTRECOVERABLE; // as any call may leave it
}

int socket(int domain, int type, int protocol) __THROW
{
    if (Active() != nullptr && domain == AF_PACKET) {
        Board().Record("packet socket " + std::to_string(type) + " " +
                       std::to_string(ntohs(static_cast<uint16_t>(protocol))));
        return OpenOnBoard("socket", FakeEthernet::kPath, O_RDWR);
    }
    return Fails("socket") ? -1 : REAL(socket)(domain, type, protocol);
}

int setsockopt(int fd, int level, int name, const void *value, socklen_t size) __THROW
{
    const bool reuse = level == SOL_SOCKET && name == SO_REUSEADDR && size == sizeof(int) &&
                       *static_cast<const int *>(value) == 1 && fd >= 0;
    Board().Record(reuse ? "reuse address" : "some option");
    return Fails("setsockopt") ? -1 : 0;
}

int bind(int /*fd*/, const sockaddr *address, socklen_t /*size*/) __THROW
{
    Board().Record("bind " + AddressText(address));
    return Fails("bind") ? -1 : 0;
}

ssize_t sendto(int /*fd*/, const void *buffer, size_t count, int /*flags*/, const sockaddr *address,
               socklen_t /*size*/)
{
    Board().clock += Board().send_time;
    if (Fails("sendto")) {
        return FaultResult();
    }
    count = std::min(count, Board().longest_send);
    Board().datagrams.emplace_back(static_cast<const char *>(buffer), count);
    Board().Record("send " + AddressText(address), count);
    return static_cast<ssize_t>(count);
}

ssize_t recvfrom(int /*fd*/, void *buffer, size_t count, int /*flags*/, sockaddr * /*address*/,
                 socklen_t * /*size*/)
{
    if (Fails("recvfrom")) {
        return FaultResult();
    }
    const std::string datagram = Board().datagrams.front();
    Board().datagrams.pop_front();
    std::memcpy(buffer, datagram.data(), std::min(count, datagram.size()));
    return static_cast<ssize_t>(std::min(count, datagram.size()));
}

ssize_t recv(int fd, void *buffer, size_t count, int /*flags*/)
{
    return Fails("recv", FileAt(fd).path) ? FaultResult()
                                          : DeviceAt(fd)->Read(FileAt(fd), buffer, count);
}

int pthread_create(pthread_t *__restrict thread, const pthread_attr_t *__restrict attributes,
                   void *(*body)(void *), void *__restrict argument) __THROW
{
    if (Fails("pthread_create")) {
        return errno;
    }
    int state = 0;
    pthread_attr_getdetachstate(attributes, &state);
    Board().Record(state == PTHREAD_CREATE_DETACHED ? "thread detached" : "thread");
    auto *start = new NewThread{Active(), Board().QueueTurn(0), body, argument};
    return REAL(pthread_create)(thread, attributes, ThreadMain, start);
}
}
