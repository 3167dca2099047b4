#include "flash/settings.h"

#include <unistd.h>

#include <cstdio>

#include "util/conf_reader.h"
#include "util/conf_writer.h"
#include "util/number.h"
#include "util/shell.h"

namespace
{

constexpr const char *kSaveCommands[] = {
    "/bin/cp -dpR /etc/network/network.conf /tmp/network.conf",
    "cp -dpR /etc/network/wireless.conf /tmp/wireless.conf",
    "cp -dpR /etc/system.conf /tmp/system.conf",
    "cp -dpR /etc/serverinfo.conf /tmp/serverinfo.conf",
    "cp -dpR /etc/cam_model.conf /tmp/cam_model.conf",
};

constexpr const char *kRestoreCommands[] = {
    "/bin/rm -f /etc/network/network.conf",
    "/bin/cp -dpR /tmp/network.conf /etc/network/network.conf",
    "/bin/cp -dpR /tmp/wireless.conf /etc/network/wireless.conf",
    "/bin/cp -dpR /tmp/system.conf /etc/system.conf",
    "/bin/cp -dpR /tmp/serverinfo.conf /etc/serverinfo.conf",
    "/bin/cp -dpR /tmp/cam_model.conf /etc/cam_model.conf",
};

struct CarriedValue {
    SettingPlace place;
    int32_t default_value;
};

// In the order of writing them back.
constexpr std::array<CarriedValue, CarriedSettings::kValueCount> kValues{{
    {{"/etc/tcp_server.conf", "server_port"}, 1852},
    {{"/etc/stream.conf", "stream_1_port"}, 1852},
    {{"/etc/stream.conf", "stream_2_port"}, 1853},
    {{"/etc/stream.conf", "stream_3_port"}, 1854},
    {{"/etc/videodecoder.conf", "video_type"}, 0},
}};

constexpr SettingPlace kLighttpdPort{"/etc/lighttpd/lighttpd.conf", "server.port"};
constexpr SettingPlace kWebsPort{"/etc/web.conf", "port"};
constexpr int32_t kDefaultWebPort = 80;

/// Where the web server in use keeps its port.
SettingPlace FindWebPort()
{
    // Without effect: lighttpd's place is the default even if lighttpd is missing.
    [[maybe_unused]] const int lighttpd_present = access("/bin/lighttpd", R_OK);
    return access("/bin/webs", R_OK) == 0 ? kWebsPort : kLighttpdPort;
}

/// The number at the place, or the default when its file cannot be opened. A file without the key
/// gives the value of its last line, as every lookup on the board does.
int32_t ReadValue(const SettingPlace &place, int32_t default_value)
{
    std::array<char, 256> text{};
    if (CUTIL_GetConfValue(place.path, place.key, text) < 0) {
        return default_value;
    }
    return ParseLeadingInteger(text.data());
}

void WriteValue(const SettingPlace &place, int32_t value)
{
    std::array<char, 16> text;
    std::snprintf(text.data(), text.size(), "%d", value);
    // A setting that cannot be written leaves the new firmware's own in force.
    CUTIL_SetConfValue(place.path, place.key, text.data());
}

} // namespace

void CarriedSettings::Save()
{
    RunShell(kSaveCommands);
    const auto read = [this](size_t i) {
        values_[i] = ReadValue(kValues[i].place, kValues[i].default_value);
    };
    read(0);
    web_place_ = FindWebPort(); // the web port is read second and written last
    web_port_ = ReadValue(web_place_, kDefaultWebPort);
    for (size_t i = 1; i < kValues.size(); ++i) {
        read(i);
    }
}

void CarriedSettings::Restore() const
{
    RunShell(kRestoreCommands);
    for (size_t i = 0; i < kValues.size(); ++i) {
        WriteValue(kValues[i].place, values_[i]);
    }
    WriteValue(web_place_, web_port_);
}
