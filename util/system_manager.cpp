#include "util/system_manager.h"

#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <span>

#include "util/error_text.h"
#include "util/fd.h"
#include "util/loopback.h"

namespace
{

constexpr int32_t kHeaderSize = SystemManagerHeader::kSize;
constexpr int32_t kMaxData = 256;

} // namespace

int CSYSMGR_SendPacket(uint32_t command, const uint8_t *data, int32_t length)
{
    if (length > kMaxData || (data == nullptr && length > 0)) {
        return -1;
    }
    std::array<uint8_t, kHeaderSize + kMaxData> packet;
    const SystemManagerHeader header{command};
    std::copy(header.bytes.begin(), header.bytes.end(), packet.begin());
    if (length > 0) {
        std::copy_n(data, length, packet.begin() + kHeaderSize);
    }

    const int number = socket(AF_INET, SOCK_DGRAM, 0);
    if (number < 0) {
        std::puts("[CSYSMGR_SendPacket] local socket error. exit");
        return -1;
    }
    if (number == 0) { // a process without standard input is broken; the socket stays open
        return -1;
    }
    const Fd fd{number};
    // A negative length cuts the header short.
    const auto size = static_cast<size_t>(std::max(kHeaderSize + length, 0));
    if (SendToLoopback(fd.get(), kSystemManagerPort, std::span{packet}.first(size)) == -1) {
        std::printf("[CSYSMGR_SendPacket] : error while send message : %s\n", ErrorText(errno));
    }
    return 0;
}
