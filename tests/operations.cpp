// The applets and operations that the cases run, by name and with their own arguments.
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
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
std::string g_text, g_bytes; ///< the buffers that a call fills, with text or with any bytes
std::vector<int> g_opened;   ///< for one call

/// A number; or what to open for this one call: a path, or a kind of socket.
template<typename Type>
Type NumberOf(const std::string &word)
{
    if (std::isdigit(word[0]) == 0 && word[0] != '-') {
        g_opened.push_back(open(word.c_str(), O_RDWR));
        if (g_opened.back() < 0) {
            throw WrongLine("'" + word + "' is no number, and the board cannot open it");
        }
        return static_cast<Type>(g_opened.back());
    }
    return NumberAs<Type>(word);
}

template<typename Type, typename... Others>
constexpr bool kIsOneOf = (std::is_same_v<Type, Others> || ...);
/// A record takes no word.
template<typename Type>
constexpr bool kIsRecord = kIsOneOf<Type, CICOMM *, CTHREAD *, CWDT *>;
template<typename Type>
constexpr bool kIsBuffer = std::is_pointer_v<Type> && !std::is_const_v<std::remove_pointer_t<Type>>;

/// How a usage names an argument.
template<typename Type>
std::string NameOf()
{
    if constexpr (kIsRecord<Type>) {
        return "";
    } else if constexpr (std::is_same_v<Type, std::span<char>> || kIsBuffer<Type>) {
        return " SIZE";
    } else if constexpr (std::is_integral_v<Type> && !std::is_same_v<Type, char>) {
        return " NUMBER|PATH";
    } else {
        return " TEXT";
    }
}

/// The next argument of a function. A buffer to fill takes its size.
template<typename Type>
Type Take(const Words &words, size_t &at)
{
    if constexpr (std::is_same_v<Type, CICOMM *>) {
        return &g_channel;
    } else if constexpr (std::is_same_v<Type, CTHREAD *>) {
        return &g_thread;
    } else if constexpr (std::is_same_v<Type, CWDT *>) {
        return &g_watchdog;
    } else {
        const std::string &word = words.at(at++);
        if constexpr (std::is_pointer_v<Type>) {
            if (word == "null") {
                return nullptr;
            }
        }
        if constexpr (std::is_same_v<Type, std::span<char>>) {
            g_text.assign(NumberOf<size_t>(word), '-');
            return g_text;
        } else if constexpr (kIsBuffer<Type>) {
            g_bytes.assign(NumberOf<size_t>(word), '\xee');
            return reinterpret_cast<Type>(g_bytes.data());
        } else if constexpr (std::is_pointer_v<Type>) {
            return reinterpret_cast<Type>(word.c_str());
        } else if constexpr (std::is_same_v<Type, char>) {
            return word[0];
        } else if constexpr (std::is_integral_v<Type>) {
            return NumberOf<Type>(word);
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
    if (result == nullptr) {
        return "= null";
    }
    return "= \"" + std::string{result} + "\"";
}

std::string ResultText(long long result)
{
    return "= " + std::to_string(result);
}

struct Operation {
    std::string usage; ///< its arguments
    std::function<std::string(FakeBoard &board, const Words &words)> run;
};

template<auto Function>
constexpr auto kFunction = Function;

/// Calls a function with arguments from the words. Takes the address of its pointer, because
/// those in the records are filled later.
template<typename Returned, typename... Arguments>
Operation Call(Returned (*const *function)(Arguments...))
{
    const auto run = [function](FakeBoard & /*board*/, const Words &words) -> std::string {
        [[maybe_unused]] size_t at = 1;
        g_text.clear();
        g_bytes.clear();
        std::tuple<std::decay_t<Arguments>...> arguments{
            Take<std::decay_t<Arguments>>(words, at)...};
        if constexpr (std::is_void_v<Returned>) {
            std::apply(*function, arguments);
            return "";
        } else {
            const std::string result = ResultText(std::apply(*function, arguments));
            return result + (g_text.empty() ? "" : " " + g_text.substr(0, g_text.find('\0'))) +
                   (g_bytes.empty() ? "" : " " + Hex(g_bytes));
        }
    };
    return {(NameOf<std::decay_t<Arguments>>() + ... + ""), run};
}

/// Runs an applet. A run that does not return would leak arguments on the heap.
void Start(FakeBoard &board, AppletHandler *handler, std::span<const std::string> words)
{
    std::array<char *, 64> arguments{};
    for (size_t i = 0; i < words.size(); ++i) {
        arguments.at(i) = const_cast<char *>(words[i].c_str());
    }
    const int result = handler(static_cast<int>(words.size()), arguments.data());
    if (result != 0) {
        board.Record(ResultText(result));
    }
}

/// The package at its usual place, onto the three partitions. A partition that then differs
/// from its region is shown with the number of bytes that match.
std::string Install(FakeBoard &board, const Words &words)
{
    const std::array<const char *, 3> devices{"/dev/mtd/1", "/dev/mtd/2", "/dev/mtd/3"};
    const int result = CFlash_TEVWrite("/tmp/flash3", devices[0], devices[1], devices[2],
                                       NumberOf<uint32_t>(words.at(1)));
    std::string text = ResultText(result);
    for (size_t i = 0; i < devices.size() && result == 0; ++i) {
        const std::string &flash = board.NodeAt(devices[i])->bytes;
        std::string wanted = RegionOf(board.Read("/tmp/flash3"), static_cast<int>(i) + 1);
        wanted.resize(flash.size(), '\xff'); // cppcheck-suppress invalidFunctionArg
        const auto matching = std::ranges::mismatch(flash, wanted).in1 - flash.begin();
        if (flash != wanted) {
            text += std::string{" "} + devices[i] + ": " + std::to_string(matching);
        }
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

/// A child that sends back what it gets until its input ends.
std::string ForkPipe(FakeBoard & /*board*/, const Words & /*words*/)
{
    int in = -1;
    int out = -1;
    int status = 0;
    const pid_t id = CUTIL_ForkPipe(in, out);
    char c = 'x';
    while (id == 0 && read(in, &c, 1) == 1 && write(out, &c, 1) == 1) {
    }
    if (id == 0) {
        _exit(7);
    }
    if (id < 0) {
        return ResultText(id);
    }
    const bool is_sent = write(out, &c, 1) == 1 && read(in, &c, 1) == 1;
    close(out);
    const bool has_ended = read(in, &c, 1) == 0;
    close(in);
    waitpid(id, &status, 0);
    return ResultText(WEXITSTATUS(status)) + (is_sent && has_ended ? " to the end" : "");
}

/// The size, then id, sender's port and payload, if they exist.
std::string Receive(FakeBoard & /*board*/, const Words & /*words*/)
{
    const auto &[close, get_fd, send, receive, header, data] = g_channel.operations;
    uint32_t id = 0;
    const std::string size = ResultText(receive(&g_channel, &id));
    return size == "= -1" ? size
                          : size + " id " + std::to_string(id) + " from " +
                                std::to_string(header(&g_channel)->sender_port) + " " +
                                reinterpret_cast<const char *>(data(&g_channel));
}

/// A thread of five rounds of so many seconds; without INIT-RESULT it has no init and exit.
std::string InitThread(FakeBoard & /*board*/, const Words &words)
{
    static struct Work {
        unsigned round;
        int init_result, rounds;
    } work;
    const bool all = words.size() > 2;
    work = {NumberOf<unsigned>(words.at(1)), all ? NumberOf<int>(words[2]) : 0, 0};
    const auto init = [](void *own) {
        g_board->Record("init");
        return static_cast<Work *>(own)->init_result;
    };
    const auto loop = [](void *own) {
        sleep(static_cast<Work *>(own)->round);
        return ++static_cast<Work *>(own)->rounds < 5 ? 0 : -1;
    };
    const auto exit = [](void *own) {
        g_board->Record("last round " + std::to_string(static_cast<Work *>(own)->rounds));
    };
    return ResultText(
        CTHREAD_Init(&g_thread, &work, all ? +init : nullptr, +loop, all ? +exit : nullptr));
}

#define PLAIN(function) {#function, Call(&kFunction<function>)},
// clang-format off
const std::map<std::string, Operation> kOperations = {
    {"show", {" PATH", [](auto &board, auto &words) { return "= " + board.Read(words[1]); }}},
    {"check", {"", [](auto &, auto &) { return ResultText(CFlash_CheckImage("/tmp/flash3", 20)); }}},
    {"install", {" FLAGS", Install}}, {"numbers", {" TEXT", Numbers}},
    {"CTHREAD_Init", {" SECONDS [INIT-RESULT]", InitThread}}, {"CICOMM_Recv", {"", Receive}},
    {"CUTIL_ForkPipe", {"", ForkPipe}},
    {"clock", {"", [](auto &board, auto &) { return ResultText(board.clock); }}},
    {"thread-state", {"", [](auto &, auto &) { return ResultText(g_thread.state); }}},
    // The operations of the records are called through them.
    {"CICOMM_Close", Call(&g_channel.operations.close)},
    {"CICOMM_GetFd", Call(&g_channel.operations.get_fd)},
    {"CICOMM_Send", Call(&g_channel.operations.send)},
    {"CTHREAD_Start", Call(&g_thread.start)}, {"CTHREAD_Stop", Call(&g_thread.stop)},
    {"stop_again", Call(&g_thread.stop_again)},
    {"CWDT_Close", Call(&g_watchdog.close)}, {"CWDT_Disable", Call(&g_watchdog.disable)},
    {"CWDT_KeepAlive", Call(&g_watchdog.keep_alive)},
    {"CWDT_SetTimeout", Call(&g_watchdog.set_timeout)},
    PLAIN(CARP_SendProbe) PLAIN(CCAM_ReadTimeout) PLAIN(CCAM_SendCommand)
    PLAIN(CFlash_CheckImage) PLAIN(CFlash_CheckJffs2) PLAIN(CFlash_Confirm) PLAIN(CFlash_Crc32)
    PLAIN(CFlash_Erase) PLAIN(CFlash_NWrite) PLAIN(CICOMM_Init) PLAIN(CRTC_GetTime)
    PLAIN(CSERIAL_Rs232Exchange) PLAIN(CSERIAL_Rs485Exchange) PLAIN(CSYSMGR_SendPacket)
    PLAIN(CUTIL_CheckTimeout) PLAIN(CUTIL_ElapsedUsec) PLAIN(CUTIL_GetConfValue)
    PLAIN(CUTIL_GetConfValueExact) PLAIN(CUTIL_GetConfValueSep) PLAIN(CUTIL_IsProc)
    PLAIN(CUTIL_KillProc) PLAIN(CUTIL_KillProcAll) PLAIN(CUTIL_ParseConfLine)
    PLAIN(CUTIL_ParseConfLineSep) PLAIN(CUTIL_ParseDecimal) PLAIN(CUTIL_Reboot)
    PLAIN(CUTIL_RebootFixedList) PLAIN(CUTIL_SendCommand) PLAIN(CUTIL_SetConfValue)
    PLAIN(CUTIL_SetConfValueSep) PLAIN(CUTIL_SetFileValue) PLAIN(CWDT_Init)
    PLAIN(TEV_SendLocalUDPData) PLAIN(full_read) PLAIN(full_write) PLAIN(sleep)
    PLAIN(write_gpioi2c)
};
// clang-format on

/// The applet of this name, or null.
const Applet *FindApplet(const std::string &name)
{
    const Applet *applet = Applets();
    while (applet->name != nullptr && name != applet->name) {
        ++applet;
    }
    return applet->name != nullptr ? applet : nullptr;
}

/// A lost '$' would turn a command into arguments of the one before it.
void CheckArguments(std::span<const std::string> words)
{
    const auto is_applet = [](const std::string &word) { return FindApplet(word) != nullptr; };
    if (words.size() > 1 && words[0] != "qve" && std::ranges::any_of(words.subspan(1), is_applet)) {
        throw WrongLine("the name of an applet stands behind '" + words[0] + "' without a '$'");
    }
}

void RunOne(FakeBoard &board, const Words &words)
{
    if (words.empty()) {
        throw WrongLine("expected: an applet or an operation behind the '$'");
    }
    const std::string &name = words[0]; // a copy would leak when the run does not come back
    const Applet *applet = FindApplet(name);
    if (name == "qve" || applet != nullptr) {
        applet == nullptr ? Start(board, Dispatch, std::span{words}.subspan(1))
                          : Start(board, applet->handler, words);
        return;
    }
    const auto operation = kOperations.find(name);
    if (operation == kOperations.end()) {
        throw WrongLine("no applet or operation is called '" + name + "'");
    }
    CheckCount(name + operation->second.usage, words);
    std::string result = operation->second.run(board, words);
    if (name.starts_with("CUTIL_Set")) {
        result += " " + board.Read("/etc/a.conf");
    }
    for (const int fd : std::exchange(g_opened, {})) {
        close(fd);
    }
    if (!result.empty()) {
        board.Record(result);
    }
}

} // namespace

bool Runs(const Words &line)
{
    return std::ranges::find(line, "$") != line.end();
}

void RunLine(FakeBoard &board, const Words &line)
{
    // These outlive a run that does not come back.
    static Words words;
    static long left;
    const auto begins = [](const std::string &word) { return word == "+" || word == "$"; };
    left = std::ranges::count_if(line, begins);
    board.Run([&] {
        for (auto begin = line.begin(); begin != line.end(); --left) {
            const auto end = std::find_if(begin + 1, line.end(), begins);
            words.assign(begin + 1, end);
            CheckArguments(words);
            *begin == "+" ? Prepare(board, words) : RunOne(board, words);
            begin = end;
        }
    });
    if (left > 1) {
        throw WrongLine("'" + words[0] +
                        "' does not come back, so the rest of the line never runs");
    }
    if (!board.wrong_event.empty()) {
        throw WrongLine(board.wrong_event);
    }
}
