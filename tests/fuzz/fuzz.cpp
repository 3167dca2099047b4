// Feeds arbitrary bytes to everything that reads bytes, and checks the rules that must always hold.
//
// Input: one character selects what runs, the next the outside call that fails ('0' for none). The
// rest is used as package, configuration, list, command lines, boot environment, replies, frames
// and datagrams at the same time.
#include <algorithm>
#include <cstdlib>
#include <cstring>

#include "tests/packages.h"
#include "tests/words.h"

namespace
{

constexpr const char *kLines[] = {
    "$ CUTIL_GetConfValue /etc/a.conf key 64 $ CUTIL_GetConfValueExact /etc/a.conf key 9",
    "$ CUTIL_GetConfValueSep /etc/a.conf key 5 : $ load_drv $ xtime",
    "$ CUTIL_SetConfValue /etc/a.conf key 9",
    "$ CUTIL_SetConfValueSep = /etc/a.conf key 9",
    "$ CUTIL_SetFileValue /etc/a.conf /etc/temp.conf key 9",
    "$ CUTIL_KillProcAll /etc/a.conf 15 $ CUTIL_IsProc key 1 $ xkill key",
    "$ xfactorydefault /etc/a.conf",
    "$ get_boot_param /tmp/p",
    "$ get_cb_cam_info -v",
    "$ test_rs485 -v",
    "$ test_rs232",
    "$ tev_arp eth0 192.0.2.9 30",
    "$ CICOMM_Init 4200 $ CICOMM_Recv $ CICOMM_Recv $ CICOMM_Close",
    "$ upgrade /tmp/flash3 -v",
    "$ xupgrade -i",
    "$ test_sdcard -v",
};

/// Whether the kernel's checksums hold.
bool IsSound(const std::string &package)
{
    const size_t header = package.size() >= 8 && WordAt(package, 4) == 3 ? 64 : 20;
    std::string image = package.substr(std::min(header, package.size()));
    if (image.size() < 64) {
        return false;
    }
    const std::string header_crc = image.substr(4, 4);
    const std::string data_crc = image.substr(24, 4);
    const std::string size{image.rend() - 16, image.rend() - 12}; // the bytes 12 to 15, backwards
    image.replace(4, 4, 4, '\0');
    return BigEndian(Crc32(image.substr(0, 64))) == header_crc &&
           BigEndian(Crc32(image.substr(64, WordAt(size, 0)))) == data_crc;
}

void Require(bool holds, const char *rule)
{
    if (!holds) {
        std::fprintf(stderr, "does not hold: %s\n", rule);
        std::abort();
    }
}

void Fill(FakeBoard &board, const std::string &text)
{
    for (const char *path :
         {"/tmp/flash3", "/etc/a.conf", "/etc/cam_model.conf", "/etc/stream.conf",
          "/mnt/sd/test.txt", "/etc/killList", "/etc/capabilities.conf"}) {
        board.Write(path, text);
    }
    const int layout = text.size() > 4 ? text[4] : 0; // the version that the board expects
    board.Write("/usr/upgrade", "VERSION=" + std::to_string(layout) + "\n");
    for (const char *id : {"19", "20", "21", "4711", "0030", "x"}) {
        board.Write("/proc/" + std::string{id} + "/cmdline",
                    text.substr(std::min(text.size(), strlen(id) % 3)));
    }
    Prepare(board, {"environment", text});
    for (const char *path : {"/dev/ttyAMA1", "/dev/ttyAMA2"}) {
        Prepare(board, {"line", path});
        Prepare(board, {"answer", path, "5459", "1"}); // the transmitter is empty
        for (const char *second : {"\xa5", "\xe0", "\x5c", "\xe3"}) {
            Prepare(board, {"reply", path, second, text.substr(0, 9), text.substr(0, 300)});
        }
    }
    for (size_t at = 0; at < text.size() && at < 2000; at += 43) {
        const auto events = static_cast<short>(text[at] & (POLLIN | POLLERR | POLLHUP));
        board.nodes["packet"].input.push_back({text.substr(at + 1, 42), events});
    }
    board.nodes["socket"].input = {{text}, {text + std::string(110'000, 'x')}, {text}};
}

void Fuzz(const std::string &input)
{
    const std::string line = kLines[static_cast<uint8_t>(input[0]) % std::size(kLines)];
    const std::string text = input.substr(2);
    FakeBoard board;
    Fill(board, text);
    const int failing = static_cast<uint8_t>(input[1] - '0');
    board.Fail({"", EIO, failing, failing});
    RunLine(board, WordsIn(line));

    const std::string transcript = board.TakeTranscript();
    const auto says = [&transcript](const std::string &text) {
        return transcript.find("\n" + text) != std::string::npos;
    };
    Require(!(says("erase") || says("write /dev/mtd")) || IsSound(text),
            "flash is not touched without a sound package");
    const std::string kill = "\nkill ";
    for (size_t at = 0; (at = transcript.find(kill, at)) != std::string::npos; at += kill.size()) {
        Require(std::stoi(transcript.substr(at + kill.size())) >= 20, "no early process, no group");
    }
    for (const auto &[fd, file] : board.open_files) {
        Require(file.path.ends_with("watchdog") ||
                    line.starts_with("$ CICOMM_Init"), // a socket that cannot be set up
                "nothing stays open");
    }
    if (line.starts_with("$ CUTIL_Set")) {
        const bool failed = says("= -");
        const std::string after = board.Read("/etc/a.conf");
        Require(after == text ? failed || after.find("key=9\n") != std::string::npos
                              : !failed && after.find("key=9\n") != std::string::npos,
                "a configuration file is old or new");
    }
}

} // namespace

/// Reuses freed memory early, which makes the runs four times as fast.
extern "C" const char *__asan_default_options() // NOLINT(bugprone-reserved-identifier)
{
    return "quarantine_size_mb=1";
}

extern "C" int LLVMFuzzerInitialize(int *argc, char ***argv)
{
    // Limits each allocation instead of the whole memory. A limit on the whole memory starts a
    // thread, and the board would take its sleeps for the program's.
    static char options[][32] = {"-rss_limit_mb=0", "-malloc_limit_mb=64"};
    static std::vector<char *> arguments(*argv, *argv + *argc);
    arguments.insert(arguments.end(), {options[0], options[1]});
    *argc = static_cast<int>(arguments.size());
    arguments.push_back(nullptr);
    *argv = arguments.data();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    if (size >= 2) {
        Fuzz({reinterpret_cast<const char *>(data), size});
    }
    return 0;
}
