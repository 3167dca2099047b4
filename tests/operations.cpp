// The applets and operations that the cases run, by name and with their own arguments.
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <stdexcept>
#include <tuple>
#include <utility>

#include "app/applet_table.h"
#include "app/dispatcher.h"
#include "bringup/arp_probe.h"
#include "bringup/rtc.h"
#include "flash/crc32.h"
#include "flash/installer.h"
#include "flash/jffs2.h"
#include "flash/mtd.h"
#include "flash/uimage.h"
#include "hwtest/camera_board.h"
#include "hwtest/gpio_i2c.h"
#include "hwtest/serial_loopback.h"
#include "hwtest/serial_port.h"
#include "tests/packages.h"
#include "tests/words.h"
#include "upgrade/local_udp.h"
#include "upgrade/message_channel.h"
#include "upgrade/watchdog.h"
#include "upgrade/worker_thread.h"
#include "util/command_pipe.h"
#include "util/conf_reader.h"
#include "util/conf_writer.h"
#include "util/elapsed_time.h"
#include "util/number.h"
#include "util/process.h"
#include "util/reboot.h"
#include "util/system_manager.h"

namespace
{

// The records and buffers of the operations.
CICOMM g_channel;
CTHREAD g_thread;
CWDT g_watchdog;
uint32_t g_id;
std::string g_text;
std::vector<int> g_opened; ///< for one call

int Opened(int fd)
{
    g_opened.push_back(fd);
    return fd;
}

/// A number; or a device's path, "udp", "packet" or "pipe", which is open for this one call.
long long NumberOf(const std::string &word)
{
    int ends[2];
    return word.starts_with('/')
               ? Opened(open(word.c_str(),
                             O_RDWR | (word.starts_with("/dev/tty") ? O_NOCTTY | O_NONBLOCK : 0)))
           : word == "udp"    ? Opened(socket(AF_INET, SOCK_DGRAM, 0))
           : word == "packet" ? Opened(socket(AF_PACKET, SOCK_PACKET, 0))
           : word == "pipe"   ? (pipe(ends), Opened(ends[0]), Opened(ends[1]))
                              : std::stoll(word, nullptr, 0);
}

/// The next argument of a function. A record takes no word, a buffer takes its size.
template<typename Type>
Type Take(const Words &words, size_t &at)
{
    if constexpr (std::is_same_v<Type, CICOMM *>) {
        return &g_channel;
    } else if constexpr (std::is_same_v<Type, CTHREAD *>) {
        return &g_thread;
    } else if constexpr (std::is_same_v<Type, CWDT *>) {
        return &g_watchdog;
    } else if constexpr (std::is_same_v<Type, uint32_t *>) {
        return &g_id;
    } else {
        const std::string &word = words.at(at++);
        if constexpr (std::is_same_v<Type, std::span<char>>) {
            g_text.assign(std::stoul(word), '-');
            return g_text;
        } else if constexpr (std::is_pointer_v<Type>) {
            return word == "null" ? nullptr
                                  : reinterpret_cast<Type>(const_cast<char *>(word.c_str()));
        } else if constexpr (std::is_same_v<Type, char>) {
            return word[0];
        } else if constexpr (std::is_integral_v<Type>) {
            return static_cast<Type>(NumberOf(word));
        } else if constexpr (std::is_same_v<Type, sockaddr>) {
            sockaddr address{AF_PACKET, ""};
            word.copy(address.sa_data, sizeof address.sa_data);
            return address;
        } else {
            Type bytes{};
            std::ranges::copy(word, bytes.begin());
            return bytes;
        }
    }
}

std::string ResultText(const char *result)
{
    return result == nullptr ? "= null" : "= \"" + std::string{result} + "\"";
}

std::string ResultText(long long result)
{
    return "= " + std::to_string(result);
}

using Operation = std::function<std::string(FakeBoard &board, const Words &words)>;

/// Calls a function with arguments from the words.
template<typename Returned, typename... Arguments>
Operation Plain(Returned (*function)(Arguments...))
{
    return [function](FakeBoard & /*board*/, const Words &words) -> std::string {
        [[maybe_unused]] size_t at = 1;
        g_text.clear();
        std::tuple<std::decay_t<Arguments>...> arguments{
            Take<std::decay_t<Arguments>>(words, at)...};
        if constexpr (std::is_void_v<Returned>) {
            std::apply(function, arguments);
            return "";
        } else {
            const std::string result = ResultText(std::apply(function, arguments));
            return g_text.empty() ? result : result + " " + g_text.substr(0, g_text.find('\0'));
        }
    };
}

int StartHandler(AppletHandler *handler, const Words &words)
{
    static Words own; // must outlive a run that does not return
    static std::vector<char *> arguments;
    own = words;
    arguments.clear();
    for (std::string &word : own) {
        arguments.push_back(word.data());
    }
    arguments.push_back(nullptr);
    return handler(static_cast<int>(own.size()), arguments.data());
}

/// PATH: a file, or a flash partition.
std::string Show(FakeBoard &board, const Words &words)
{
    return "= " + (board.devices.contains(words.at(1)) ? board.devices[words.at(1)].bytes
                                                       : board.Read(words.at(1)));
}

/// FLAGS: the package at its usual place, onto the three partitions.
std::string Install(FakeBoard & /*board*/, const Words &words)
{
    return ResultText(CFlash_TEVWrite("/tmp/flash3", "/dev/mtd/1", "/dev/mtd/2", "/dev/mtd/3",
                                      static_cast<uint32_t>(std::stoul(words.at(1)))));
}

/// For each partition, the number of bytes that match the package.
std::string Installed(FakeBoard &board, const Words & /*words*/)
{
    std::string text = "=";
    for (int number = 1; number <= 3; ++number) {
        const std::string &flash = board.devices["/dev/mtd/" + std::to_string(number)].bytes;
        std::string wanted = RegionOf(board.Read("/tmp/flash3"), number);
        wanted.resize(flash.size(), '\xff');
        text += " " + std::to_string(std::ranges::mismatch(flash, wanted).in1 - flash.begin());
    }
    return text;
}

/// A text as each kind of number.
std::string Numbers(FakeBoard & /*board*/, const Words &words)
{
    const char *text = words.at(1).c_str();
    return ResultText(CUTIL_ParseDecimal(text)) + " " + std::to_string(ParseLeadingInteger(text)) +
           " " + std::to_string(ParseLeadingUnsigned(text));
}

/// A child that echoes its input until the parent closes its end.
std::string ForkPipe(FakeBoard & /*board*/, const Words & /*words*/)
{
    int in = -1, out = -1, status = 0;
    const pid_t id = CUTIL_ForkPipe(in, out);
    char text[4] = "abc";
    if (id == 0) {
        while (read(in, text, 3) == 3) {
            (void)!write(out, text, 3);
        }
        _exit(7);
    }
    if (id < 0) {
        return ResultText(id);
    }
    (void)!write(out, "xyz", 3);
    (void)!read(in, text, 3);
    close(out);
    const bool ended = read(in, text, 3) == 0;
    close(in);
    waitpid(id, &status, 0);
    return ResultText(WEXITSTATUS(status)) + " " + text + (ended ? " to the end" : "");
}

/// The size, then id, sender's port and payload, if they exist.
std::string Receive(FakeBoard & /*board*/, const Words & /*words*/)
{
    const int size = g_channel.operations.recv(&g_channel, &g_id);
    const MessageHeader *header = g_channel.operations.get_recv_header(&g_channel);
    const auto *data =
        reinterpret_cast<const char *>(g_channel.operations.get_recv_data(&g_channel));
    return size < 0 ? ResultText(size)
                    : ResultText(size) + " id " + std::to_string(g_id) + " from " +
                          std::to_string(header->sender_port) + " " +
                          std::string{data, strnlen(data, kMaxPayload)};
}

/// The worker thread's work: rounds of this many seconds, at most five.
struct Work {
    unsigned round;
    int32_t init_result;
    int rounds;
} g_work;

int32_t WorkInit(void *work)
{
    FakeBoard::Active()->Record("init");
    return static_cast<Work *>(work)->init_result;
}

int32_t WorkLoop(void *work)
{
    sleep(static_cast<Work *>(work)->round);
    return ++static_cast<Work *>(work)->rounds < 5 ? 0 : -1;
}

void WorkExit(void * /*work*/)
{
    FakeBoard::Active()->Record("exit");
}

/// SECONDS [INIT-RESULT]: a thread with such rounds; without INIT-RESULT it has no init and exit.
std::string InitThread(FakeBoard & /*board*/, const Words &words)
{
    const bool all = words.size() > 2;
    g_work = {static_cast<unsigned>(NumberOf(words.at(1))), all ? std::stoi(words.at(2)) : 0, 0};
    return ResultText(CTHREAD_Init(&g_thread, &g_work, all ? WorkInit : nullptr, WorkLoop,
                                   all ? WorkExit : nullptr));
}

/// Whether each operation is in its place in the records.
std::string Slots(FakeBoard & /*board*/, const Words & /*words*/)
{
    const CICOMM::Operations &channel = g_channel.operations;
    return ResultText(g_watchdog.close == CWDT_Close && g_watchdog.keep_alive == CWDT_KeepAlive &&
                      g_watchdog.disable == CWDT_Disable &&
                      g_watchdog.set_timeout == CWDT_SetTimeout) +
           " " +
           std::to_string(g_thread.stop == CTHREAD_Stop && g_thread.start == CTHREAD_Start &&
                          g_thread.stop_again == CTHREAD_Stop) +
           " " +
           std::to_string(channel.close == CICOMM_Close && channel.get_fd == CICOMM_GetFd &&
                          channel.send == CICOMM_Send);
}

#define PLAIN(function) {#function, Plain(function)},
// clang-format off
const std::map<std::string, Operation> kOperations = {
    {"show", Show}, {"install", Install}, {"installed", Installed}, {"numbers", Numbers},
    {"slots", Slots},
    {"thread-state", [](auto &, auto &) { return ResultText(g_thread.state); }},
    {"CTHREAD_Init", InitThread}, {"CICOMM_Recv", Receive}, {"CUTIL_ForkPipe", ForkPipe},
    {"clock", [](FakeBoard &board, auto &) { return ResultText(board.clock); }},
    PLAIN(CRTC_GetTime)
    PLAIN(CARP_SendProbe) PLAIN(CCAM_ReadTimeout) PLAIN(CCAM_SendCommand)
    PLAIN(CFlash_CheckImage) PLAIN(CFlash_CheckJffs2) PLAIN(CFlash_Confirm) PLAIN(CFlash_Crc32)
    PLAIN(CFlash_Erase) PLAIN(CFlash_NWrite) PLAIN(CICOMM_Close)
    PLAIN(CICOMM_GetFd) PLAIN(CICOMM_Init) PLAIN(CICOMM_Send) PLAIN(CSERIAL_Rs232Exchange)
    PLAIN(CSERIAL_Rs485Exchange) PLAIN(CSYSMGR_SendPacket) PLAIN(CTHREAD_Start)
    PLAIN(CTHREAD_Stop) PLAIN(CUTIL_CheckTimeout) PLAIN(CUTIL_ElapsedUsec)
    PLAIN(CUTIL_GetConfValue) PLAIN(CUTIL_GetConfValueExact) PLAIN(CUTIL_GetConfValueSep)
    PLAIN(CUTIL_IsProc) PLAIN(CUTIL_KillProc) PLAIN(CUTIL_KillProcAll)
    PLAIN(CUTIL_ParseConfLine) PLAIN(CUTIL_ParseConfLineSep) PLAIN(CUTIL_ParseDecimal)
    PLAIN(CUTIL_Reboot) PLAIN(CUTIL_RebootFixedList) PLAIN(CUTIL_SendCommand)
    PLAIN(CUTIL_SetConfValue) PLAIN(CUTIL_SetConfValueSep) PLAIN(CUTIL_SetFileValue)
    PLAIN(CWDT_Close) PLAIN(CWDT_Disable) PLAIN(CWDT_Init) PLAIN(CWDT_KeepAlive)
    PLAIN(CWDT_SetTimeout) PLAIN(TEV_SendLocalUDPData) PLAIN(full_read) PLAIN(full_write)
    PLAIN(sleep) PLAIN(write_gpioi2c)
};
// clang-format on

void RunOne(FakeBoard &board, const Words &words)
{
    const Applet *applet = Applets();
    while (applet->name != nullptr && words.at(0) != applet->name) {
        ++applet;
    }
    if (applet->name != nullptr || words.at(0) == "qve") {
        const int result = applet->name != nullptr
                               ? StartHandler(applet->handler, words)
                               : StartHandler(Dispatch, {words.begin() + 1, words.end()});
        result != 0 ? board.Record(ResultText(result)) : void();
        return;
    }
    if (!kOperations.contains(words.at(0))) {
        throw std::runtime_error("no operation " + words.at(0));
    }
    const std::string result = kOperations.at(words.at(0))(board, words);
    for (const int fd : std::exchange(g_opened, {})) {
        close(fd);
    }
    result.empty() ? void() : board.Record(result);
}

} // namespace

void RunLine(FakeBoard &board, const Words &line)
{
    board.Run([&] {
        static Words words; // outlives a run that does not come back
        for (auto begin = line.begin(); begin != line.end();) {
            const auto end = std::find_if(
                begin + 1, line.end(), [](const auto &word) { return word == "+" || word == "$"; });
            words.assign(begin + 1, end);
            *begin == "+" ? Prepare(board, words) : RunOne(board, words);
            begin = end;
        }
    });
}
