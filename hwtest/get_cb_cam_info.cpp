// get_cb_cam_info [-v]: asks the camera board for its firmware version, sensor and resolution and
// prints them as key=value lines; -v prints each reply.

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <span>
#include <string_view>

#include "hwtest/camera_board.h"
#include "hwtest/serial_port.h"

namespace
{

constexpr size_t kLongestRead = 256;
constexpr size_t kAnswerByte = 6;

struct Query {
    uint8_t command;
    std::array<uint8_t, 7> parameters;
};

constexpr Query kModelQuery{0xE0, {1}};
constexpr Query kResolutionQuery{0x5C, {1}};
constexpr Query kVersionQuery{0xE3, {1}};

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

/// The questions to the camera board, and the buffer that all its replies share.
class Inquiry
{
public:
    Inquiry(int fd, bool verbose) : fd_(fd), verbose_(verbose) {}

    /// Asks once and waits for about 3 seconds. Returns the one byte of the reply that counts.
    uint8_t Ask(const Query &query)
    {
        TimeStamp start;
        CUTIL_GetTimeOfDay(start);
        CCAM_SendCommand(fd_, query.command, query.parameters); // its time counts too
        const size_t count = ReceiveFrame(fd_, start, reply_);
        if (verbose_) {
            PrintReceived(std::span{reply_}.first(count));
            std::puts("");
        }
        // Deliberate: the byte that a short reply lacks is the one of the reply before.
        return reply_[kAnswerByte];
    }

private:
    int fd_;
    bool verbose_;
    std::array<uint8_t, kSerialFrameSize - 1 + kLongestRead> reply_{};
};

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
    const bool verbose = argc > 1 && std::string_view{argv[1]} == "-v";
    std::setvbuf(stdout, nullptr, _IONBF, 0); // not after something was printed
    std::puts("");

    const SerialPort port{"/dev/ttyAMA2"};
    Inquiry inquiry{port.fd(), verbose};
    const uint8_t model = inquiry.Ask(kModelQuery);
    const uint8_t resolution_flag = inquiry.Ask(kResolutionQuery);
    const uint8_t version = inquiry.Ask(kVersionQuery);

    std::printf("VERSION=%02X\n", version);
    PrintModel(model, resolution_flag);
    return 0;
}
