#include "bringup/rtc.h"

#include <fcntl.h>
#include <sys/ioctl.h>

#include <array>
#include <cstdio>
#include <string_view>

#include "bringup/model.h"
#include "util/conf_reader.h"
#include "util/fd.h"

namespace
{

/// Year, month, day, hour, minute, second; the SoC's driver adds the day of the week.
using DriverRecord = std::array<uint32_t, 7>;

struct RtcDevice {
    const char *path;
    unsigned long request; ///< reads the time
};

// The kernel's own request of this number has a longer record.
constexpr RtcDevice kSocClock{"/dev/misc/hi_rtc", 0x801C7009};
static_assert(_IOR('p', 9, DriverRecord) == kSocClock.request);
// A plain number; the driver fills six words.
constexpr RtcDevice kDs1339{"/dev/misc/ds1339", 1};
constexpr RtcDevice kDs1339OfSecondFamily{"/dev/ds1339", 1};

RtcDevice FindDevice()
{
    const ModelName model = ReadModel();
    std::array<char, 128> kind{};
    if (CUTIL_GetConfValue("/etc/capabilities.conf", "rtc_device_supported", kind) < 0) {
        std::snprintf(kind.data(), kind.size(), "hirtc");
    }
    if (std::string_view{kind.data()} != "ds1339") {
        return kSocClock;
    }
    return CMODEL_GetPlatform(model.data()) != 0 ? kDs1339OfSecondFamily : kDs1339;
}

} // namespace

int CRTC_GetTime(RtcTime *time)
{
    if (time == nullptr) {
        return -1;
    }
    const RtcDevice device = FindDevice();
    const Fd fd{open(device.path, O_RDWR)};
    if (!fd) {
        return -1;
    }
    DriverRecord record{};
    // Ignores the result: a request that fails leaves zeros, which are a time too.
    ioctl(fd.get(), device.request, record.data());
    const auto field = [&record](size_t i) { return static_cast<int32_t>(record[i]); };
    *time = {field(5), field(4), field(3), field(2), field(1), field(0)};
    return 0;
}
