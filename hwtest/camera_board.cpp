#include "hwtest/camera_board.h"

#include <termios.h>
#include <unistd.h>

#include <algorithm>
#include <numeric>

#include "hwtest/serial_port.h"

namespace
{

constexpr uint8_t kStartByte = 0xFF;

} // namespace

ssize_t CCAM_SendCommand(int fd, uint8_t command, const std::array<uint8_t, 7> &parameters)
{
    if (fd < 0) {
        return -1;
    }
    std::array<uint8_t, kSerialFrameSize> frame{kStartByte, command};
    std::copy(parameters.begin(), parameters.end(), frame.begin() + 2);
    frame.back() = static_cast<uint8_t>(std::accumulate(frame.begin(), frame.end() - 1, 0));

    const ssize_t written = write(fd, frame.data(), frame.size());
    tcdrain(fd);
    return written;
}
