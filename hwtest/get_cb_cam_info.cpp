// get_cb_cam_info [-v]: asks the camera board for its firmware version, sensor and resolution and
// prints them as key=value lines; -v prints each reply.

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <span>

#include "hwtest/applets.h"
#include "hwtest/camera_board.h"
#include "hwtest/serial_port.h"
#include "hwtest/verbose_option.h"

namespace
{

constexpr size_t kLongestRead = 256;
constexpr size_t kAnswerByte = 6;

constexpr uint8_t kModelQuery = 0xE0;
constexpr uint8_t kResolutionQuery = 0x5C;
constexpr uint8_t kVersionQuery = 0xE3;

using Reply = std::array<uint8_t, kSerialFrameSize - 1 + kLongestRead>;

struct SensorModel {
    uint8_t code;
    const char *name;
    const char *resolution;       ///< while the board's resolution flag is 0
    const char *other_resolution; ///< while it is anything else
};

constexpr SensorModel kSensorModels[] = {
    {0x26, "2M Panasonic", "1080p", "720p"},
    {0x36, "2M OmniVision", "1080p", "720p"},
    {0x46, "2M Sony", "1080p", "720p"},
    {0x16, "1.3M Panasonic", "720p", "1280x1024"},
};

/// Asks the camera board and waits for about 3 seconds.
///
/// @param reply  the buffer of all replies: a short one keeps the rest of the one before
/// @return the byte of the reply that counts
uint8_t Ask(int fd, uint8_t query, Reply &reply, bool verbose)
{
    const TimeStamp start = Now();
    CCAM_SendCommand(fd, query, {1}); // its time counts too
    const size_t count = ReceiveFrame(fd, start, reply, kLongestRead);
    if (verbose) {
        PrintReceived(std::span{reply}.first(count));
        std::puts("");
    }
    return reply[kAnswerByte];
}

void PrintModel(uint8_t code, uint8_t resolution_flag)
{
    for (const SensorModel &model : kSensorModels) {
        if (model.code == code) {
            std::printf("MODEL=%s\n", model.name);
            std::printf("RESOLUTION=%s\n",
                        resolution_flag == 0 ? model.resolution : model.other_resolution);
            return;
        }
    }
    std::printf("MODEL=Unknown %02X\n", code);
    std::puts("RESOLUTION=");
}

} // namespace

int get_cb_cam_info(int argc, char **argv)
{
    const bool verbose = HasVerboseOption(argc, argv);
    std::setvbuf(stdout, nullptr, _IONBF, 0); // only before the first output
    std::puts("");

    const SerialPort port{OpenSerialPortOrExit("/dev/ttyAMA2")};
    Reply reply{};
    const uint8_t model = Ask(port.fd(), kModelQuery, reply, verbose);
    const uint8_t resolution_flag = Ask(port.fd(), kResolutionQuery, reply, verbose);
    const uint8_t version = Ask(port.fd(), kVersionQuery, reply, verbose);

    std::printf("VERSION=%02X\n", version);
    PrintModel(model, resolution_flag);
    return 0;
}
