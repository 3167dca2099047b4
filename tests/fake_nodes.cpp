// The files and devices of the board.
#include <mtd/mtd-user.h>
#include <net/if.h>
#include <sys/ioctl.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "tests/fake_board.h"

namespace
{

constexpr char kMacAddress[] = "\2\0\0\0\0\1"; // of every network interface

std::string HexWord(unsigned long word)
{
    char text[20];
    std::snprintf(text, sizeof text, " %lx", word);
    return text;
}

/// The parts of the record that the kernel gets: the input, output, control and local modes, the
/// speed, then the special characters that are not zero. 5 is VTIME and 6 is VMIN. In newer C
/// libraries the speed is not part of the control modes.
std::string SettingsText(const termios &settings)
{
    constexpr tcflag_t kSpeedBits = 0x100F100F; // of input and output
    const speed_t speed = cfgetospeed(&settings);
    std::string text = HexWord(settings.c_iflag) + HexWord(settings.c_oflag) +
                       HexWord(settings.c_cflag & ~kSpeedBits) + HexWord(settings.c_lflag);
    text += speed == B9600 ? " 9600" : speed == B115200 ? " 115200" : " other";
    for (int i = 0; i < 19; ++i) {
        const int value = settings.c_cc[i];
        text += value != 0 ? " " + std::to_string(i) + ":" + std::to_string(value) : "";
    }
    return text;
}

int RequestOfFlash(Node &flash, const OpenFile &file, unsigned long request, void *argument)
{
    if (request == MEMGETINFO) {
        auto *info = static_cast<mtd_info_user *>(argument);
        info->size = static_cast<uint32_t>(flash.bytes.size());
        info->erasesize = flash.bytes.size() < Node::kBlock ? 0 : Node::kBlock;
        return 0;
    }
    const auto *block = static_cast<erase_info_user *>(argument);
    if (request != MEMERASE || block->length != Node::kBlock ||
        (file.flags & O_ACCMODE) != O_RDWR) {
        return FailWith(EINVAL);
    }
    g_board->Record("erase " + file.path);
    flash.bytes.replace(block->start, block->length, block->length, '\xff');
    return 0;
}

} // namespace

ssize_t Node::Read(OpenFile &file, void *buffer, size_t count)
{
    if (kind == kFile || kind == kFlash) {
        file.position = std::min(file.position, bytes.size());
        count = bytes.copy(static_cast<char *>(buffer), std::min(count, transfer), file.position);
        file.position += count;
        if (kind == kFlash) {
            g_board->Record("read " + file.path + " " + std::to_string(count));
        }
        return static_cast<ssize_t>(count);
    }
    if (input.empty()) {
        return FailWith(EAGAIN);
    }
    std::string &piece = input.front().bytes;
    const size_t taken = piece.copy(static_cast<char *>(buffer), count);
    if (kind == kLine) {
        g_board->Record("read " + std::to_string(taken) + " of " + std::to_string(count));
        piece.erase(0, taken);
    }
    if (piece.empty() || kind == kSocket) { // a message that is too long loses its rest
        input.pop_front();
    }
    return static_cast<ssize_t>(taken);
}

ssize_t Node::Write(OpenFile &file, const void *buffer, size_t count)
{
    const std::string data{static_cast<const char *>(buffer), count};
    if (kind == kFile) {
        bytes.replace(file.position, count, data);
        file.position += count;
        return static_cast<ssize_t>(count);
    }
    if (kind != kFlash) {
        g_board->Record("write " + file.path.substr(file.path.rfind('/') + 1) + " " + Hex(data));
        g_board->clock += send_time;
        const auto reply = replies.find(data.size() > 1 ? data[1] : '\0');
        if (reply != replies.end()) {
            for (const std::string &piece : reply->second) {
                input.push_back({piece});
            }
        }
        return static_cast<ssize_t>(count);
    }
    if (file.position == bytes.size()) {
        return FailWith(ENOSPC);
    }
    count = std::min({count, bytes.size() - file.position, transfer});
    for (size_t i = 0; i < count; ++i, ++file.position) {
        const auto stuck = stuck_bytes.find(file.position);
        const bool sticks = stuck != stuck_bytes.end() && stuck->second-- > 0;
        bytes[file.position] =
            static_cast<char>((bytes[file.position] & data[i]) | (sticks ? 1 : 0));
    }
    g_board->Record("write " + file.path + " " + std::to_string(count));
    return static_cast<ssize_t>(count);
}

int Node::Request(const OpenFile &file, unsigned long request, void *argument)
{
    if (kind == kFlash) {
        return RequestOfFlash(*this, file, request, argument);
    }
    if (kind == kSocket) {
        auto *interface = static_cast<ifreq *>(argument);
        const std::string name{interface->ifr_name, strnlen(interface->ifr_name, IFNAMSIZ)};
        g_board->Record("ask" + HexWord(request) + " " + name);
        std::memcpy(interface->ifr_hwaddr.sa_data, kMacAddress, 6);
        return 0;
    }
    auto *record = static_cast<uint32_t *>(argument);
    std::string line = "ask" + HexWord(request);
    for (int i = 0; i < words; ++i) {
        line += HexWord(record[i]);
    }
    g_board->Record(line);
    if (const auto answer = answers.find(request); answer != answers.end()) {
        std::ranges::copy(answer->second.front(), record);
        if (answer->second.size() > 1) { // the last one repeats
            answer->second.pop_front();
        }
    }
    return result;
}

int Node::Terminal(unsigned long request, void *argument)
{
    std::string line = "drain";
    if (request == TCGETS) {
        *static_cast<termios *>(argument) = settings;
        line = "get" + SettingsText(settings);
    } else if (request == TCSETS) {
        settings = *static_cast<termios *>(argument);
        line = "set" + SettingsText(settings);
    } else if (request == TCFLSH) {
        input.clear();
        line = "flush " + std::to_string(*static_cast<int *>(argument));
    }
    g_board->Record(line);
    return 0;
}

int Node::Poll(pollfd &state, int timeout)
{
    g_board->clock += int64_t{timeout} * 1000; // the full time, also if a frame comes
    state.revents = input.empty() ? short{0} : input.front().events;
    if (!input.empty() && (state.revents & POLLIN) == 0) {
        input.pop_front(); // nothing to read
    }
    return state.revents != 0 ? 1 : 0;
}
