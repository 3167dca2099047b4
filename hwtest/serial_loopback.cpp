// test_rs485 [-v], test_rs232 [-v]: tests a serial port with a loopback plug; -v traces each
// exchange.

#include "hwtest/serial_loopback.h"

#include <sys/ioctl.h>
#include <termios.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <span>

#include "hwtest/applets.h"
#include "hwtest/serial_port.h"
#include "hwtest/verbose_option.h"

static_assert(TIOCMGET == 0x5415 && TIOCMSET == 0x5418 && TIOCM_RTS == 0x004);
static_assert(TIOCSERGETLSR == 0x5459);

namespace
{

constexpr int kCycles = 10;
// 0xA5 first: a silent port passes 0x00.
constexpr uint8_t kPatterns[] = {0xA5, 0x5A, 0xFF, 0x00};

using Frame = std::array<uint8_t, kSerialFrameSize>;

bool g_verbose;

/// Ignores the refusal of a driver without modem lines: its port needs no RTS.
void SetRts(int fd, bool on)
{
    int lines = 0;
    ioctl(fd, TIOCMGET, &lines);
    lines = on ? lines | TIOCM_RTS : lines & ~TIOCM_RTS;
    ioctl(fd, TIOCMSET, &lines);
}

/// Spins until the transmitter is empty, however long that takes.
void AwaitTransmitterEmpty(int fd)
{
    int status = 0;
    // Does not wait for a driver that refuses the request: it will never report.
    while (ioctl(fd, TIOCSERGETLSR, &status) == 0 && status == 0) {
    }
}

void Write(int fd, const Frame &frame)
{
    // A frame that was not sent does not come back either.
    [[maybe_unused]] const ssize_t written = write(fd, frame.data(), frame.size());
}

void SendRs485(int fd, const Frame &frame)
{
    // Only the step before the frame matters, so RTS stays set.
    SetRts(fd, false);
    SetRts(fd, true);
    Write(fd, frame);
    AwaitTransmitterEmpty(fd);
}

void SendRs232(int fd, const Frame &frame)
{
    Write(fd, frame);
    tcdrain(fd);
}

int Exchange(int fd, uint8_t pattern, void (*send)(int fd, const Frame &frame))
{
    std::array<uint8_t, kSerialFrameSize - 1 + kSerialFrameSize> received{};
    const TimeStamp start = Now();
    Frame frame;
    frame.fill(pattern);

    send(fd, frame); // its time counts against the limit
    if (g_verbose) {
        std::printf("PATTERN [0x%02X] => ", pattern);
    }
    const size_t count = ReceiveFrame(fd, start, received, kSerialFrameSize);
    // The count does not matter: missing bytes read as zeros.
    const bool same = std::equal(frame.begin(), frame.end(), received.begin());
    if (g_verbose) {
        PrintReceived(std::span{received}.first(count));
        std::puts(same ? " : successful" : " : failed");
    }
    return same ? 0 : -1;
}

using ExchangeRoutine = int (*)(int fd, uint8_t pattern);

bool Passes(const char *device, ExchangeRoutine exchange)
{
    const SerialPort port{OpenSerialPortOrExit(device)};
    for (int cycle = 0; cycle < kCycles; ++cycle) {
        for (const uint8_t pattern : kPatterns) {
            if (exchange(port.fd(), pattern) < 0) {
                return false;
            }
        }
    }
    return true;
}

/// @param heading  printed first
int Test(const char *heading, const char *device, ExchangeRoutine exchange)
{
    std::setvbuf(stdout, nullptr, _IONBF, 0); // only before the first output
    std::printf("%s", heading);
    std::puts(Passes(device, exchange) ? "successful" : "failed");
    return 0;
}

} // namespace

int CSERIAL_Rs485Exchange(int fd, uint8_t pattern)
{
    return Exchange(fd, pattern, SendRs485);
}

int CSERIAL_Rs232Exchange(int fd, uint8_t pattern)
{
    return Exchange(fd, pattern, SendRs232);
}

int test_rs485(int argc, char **argv)
{
    g_verbose = HasVerboseOption(argc, argv);
    return Test("", "/dev/ttyAMA1", CSERIAL_Rs485Exchange);
}

int test_rs232(int argc, char **argv)
{
    g_verbose = HasVerboseOption(argc, argv);
    return Test("\n", "/dev/ttyAMA2", CSERIAL_Rs232Exchange);
}
