// get_boot_param FILE: shows the MAC address, serial number and product code that the factory left
// in the boot loader's environment, and writes them to FILE for scripts.

#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <cstdio>
#include <span>
#include <string_view>

#include "bringup/applets.h"
#include "bringup/colour.h"
#include "util/fd.h"
#include "util/shell.h"

namespace
{

constexpr off_t kEnvironmentOffset = 0x40000;            // in the boot loader's partition
constexpr int kEnvironmentWindow = 512;                  // bytes
constexpr const char *kDefaultMac = "02:51:56:00:00:00"; // locally administered

using Value = std::array<char, 256>;

/// Copies `value`, a format without arguments: "%%" becomes '%', and any other '%' stays with what
/// follows it.
void FormatValue(const char *value, std::span<char> out)
{
    size_t length = 0;
    for (; *value != '\0' && length + 1 < out.size(); ++value) {
        out[length++] = *value;
        if (value[0] == '%' && value[1] == '%') {
            ++value;
        }
    }
    out[length] = '\0';
}

int FailToRead()
{
    std::printf("read err!"); // without a line end
    return -1;
}

/// Copies the value after `key` in the boot loader's environment, at most `max_length` characters,
/// to `out`. Key and value must end within the environment's first 512 bytes.
///
/// @return 0 when found, -1 when not
int CUTIL_GetBootParam(std::string_view key, size_t max_length, std::span<char> out)
{
    const Fd fd{open("/dev/mtd/0", O_RDONLY, 0666)};
    if (!fd) {
        std::puts("err dev file");
        return -1;
    }
    if (lseek(fd.get(), kEnvironmentOffset, SEEK_SET) != kEnvironmentOffset) {
        return FailToRead(); // other bytes are no environment
    }
    size_t matched = 0; // characters of the key
    size_t length = 0;  // of the value
    Value value{};
    for (int i = 0; i < kEnvironmentWindow; ++i) {
        char byte;
        if (read(fd.get(), &byte, 1) != 1) {
            return FailToRead();
        }
        if (matched < key.size()) {
            // Drops the byte that breaks a match: it begins no new one.
            matched = byte == key[matched] ? matched + 1 : 0;
            continue;
        }
        // Reads a value longer than the buffer to its end and keeps what fits.
        if (length < value.size() - 1) {
            value[length] = byte;
        }
        ++length;
        if (byte == '\0' || length == max_length) {
            FormatValue(value.data(), out);
            return 0;
        }
    }
    return -1;
}

struct BootParameter {
    const char *key;
    size_t max_length; ///< characters of the value
    const char *label; ///< on the console
    const char *write; ///< the command that writes the value to a file
};

constexpr std::array<BootParameter, 3> kParameters{{
    {"ethaddr=", 17, "MAC", "echo \"MAC=%s\" > %s"},
    {"serial_no=", 10, "SERIAL_NO", "echo \"SERIAL_NO=%s\" >> %s"},
    {"product_code=", 512, "PRODUCT_CODE", "echo \"PRODUCT_CODE=%s\" >> %s"},
}};

/// Puts the values into the shell's double quotes unchanged: a program that may write the
/// environment may write the firmware too.
void WriteParameters(const std::array<Value, kParameters.size()> &values, const char *path)
{
    std::array<std::array<char, 1024>, kParameters.size()> commands;
    for (size_t i = 0; i < values.size(); ++i) {
        auto &command = commands[i];
        const int length = std::snprintf(command.data(), command.size(), kParameters[i].write,
                                         values[i].data(), path);
        // All or none: a cut command would write to a file of another name, and a missing one
        // could leave lines of an earlier run.
        if (static_cast<size_t>(length) >= command.size()) {
            return;
        }
    }
    for (const auto &command : commands) {
        RunShell(command.data());
    }
}

} // namespace

int get_boot_param(int argc, char **argv)
{
    if (argc != 2) {
        std::printf("%s[GET_BOOT_PARAM] ERROR ! argc is %d\n%s", kRed, argc, kEndColour);
        return -1;
    }
    std::array<Value, kParameters.size()> values{};
    for (size_t i = 0; i < values.size(); ++i) {
        // A missing parameter stays empty.
        CUTIL_GetBootParam(kParameters[i].key, kParameters[i].max_length, values[i]);
    }
    std::printf("%sGET BOOT PARAM%s", kGreen, kEndColour);
    Value &mac = values[0];
    if (mac[0] == '\0') {
        std::printf("%s    Invalid mac address ... set to default%s", kGreen, kEndColour);
        std::snprintf(mac.data(), mac.size(), "%s", kDefaultMac);
    }
    for (size_t i = 0; i < values.size(); ++i) {
        std::printf("%s    %s [%s]%s", kGreen, kParameters[i].label, values[i].data(), kEndColour);
    }
    std::fflush(stdout); // before what the commands may print
    WriteParameters(values, argv[1]);
    return 0;
}
