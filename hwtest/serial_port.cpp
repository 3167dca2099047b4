#include "hwtest/serial_port.h"

#include <fcntl.h>
#include <sys/select.h>
#include <syslog.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>

namespace
{

constexpr uint32_t kReplyLimit = 3000; // milliseconds

constexpr tcflag_t kControlModes = CS8 | CREAD | CLOCAL;
static_assert(kControlModes == 0x8B0); // with the speed, the kernel gets 0x8BD

/// Starts from zero, so that no setting of an earlier program remains.
termios LineSettings()
{
    termios settings{};
    settings.c_iflag = IGNPAR;
    settings.c_cflag = kControlModes;
    settings.c_cc[VMIN] = 1;
    // In newer C libraries the speed is not part of the control modes.
    cfsetspeed(&settings, B9600);
    return settings;
}

} // namespace

int OpenSerialPortOrExit(const char *device)
{
    const int fd = open(device, O_RDWR | O_NOCTTY | O_NONBLOCK);
    if (fd < 0) {
        syslog(LOG_ALERT, "%s device open fail !!!", device);
        std::fprintf(stderr, "%s device open fail !!!\n", device);
        std::exit(-1);
    }
    return fd;
}

SerialPort::SerialPort(int fd) : fd_(fd)
{
    const termios settings = LineSettings();
    tcgetattr(fd, &found_);
    tcflush(fd, TCIFLUSH);
    tcsetattr(fd, TCSANOW, &settings);
}

SerialPort::~SerialPort()
{
    tcsetattr(fd(), TCSANOW, &found_);
}

ssize_t CCAM_ReadTimeout(int fd, uint8_t *buffer, size_t length, int32_t seconds,
                         int32_t microseconds)
{
    // A set has no room for a larger descriptor, which a parent with many files can leave to us.
    if (fd < 0 || fd >= FD_SETSIZE || buffer == nullptr) {
        return -1;
    }
    fd_set readable;
    FD_ZERO(&readable);
    FD_SET(fd, &readable);
    timeval timeout{seconds, microseconds};
    if (select(fd + 1, &readable, nullptr, nullptr, &timeout) < 1 || !FD_ISSET(fd, &readable)) {
        return -1;
    }
    return read(fd, buffer, length);
}

size_t ReceiveFrame(int fd, const TimeStamp &start, std::span<uint8_t> buffer, size_t longest_read)
{
    size_t count = 0;
    while (count < kSerialFrameSize && !IsExpired(start, Now(), kReplyLimit)) {
        // One microsecond: the loop spins, so that a frame is noticed at once.
        const ssize_t result = CCAM_ReadTimeout(fd, &buffer[count], longest_read, 0, 1);
        if (result > 0) {
            count += static_cast<size_t>(result);
        }
    }
    return count;
}

void PrintReceived(std::span<const uint8_t> bytes)
{
    std::printf("RECV [%8d]: ", static_cast<int>(bytes.size()));
    for (const uint8_t byte : bytes) {
        std::printf("%02X ", byte);
    }
}
