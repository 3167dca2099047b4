// Lets every outside call fail in turn and checks rules that must always hold.
#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "tests/packages.h"
#include "tests/words.h"
#include "util/error_text.h"

namespace
{

// A package that the board accepts. Each region takes two blocks of its partition.
constexpr const char *kPackage =
    "+ package marker=ABCD data={J*5000} second={R*5000} etc=\\x85\\x19{F*5000} "
    "+ file /usr/upgrade MARKER=WXYZ\\nVERSION=1\\n + file /etc/oem_marker.conf MARKER=ABCD\\n "
    "+ file /bin/webs \"\" + proc 30 /bin/webs";

const std::map<std::string, std::string> kSettings = {
    {"/etc/network/network.conf", "all=77\n"},
    {"/etc/network/wireless.conf", "all=77\n"},
    {"/etc/system.conf", "all=77\n"},
    {"/etc/serverinfo.conf", "all=77\n"},
    {"/etc/cam_model.conf", "all=77\n"},
    {"/etc/tcp_server.conf", "server_port=77\n"},
    {"/etc/stream.conf", "stream_1_port=77\nstream_2_port=77\nstream_3_port=77\n"},
    {"/etc/videodecoder.conf", "video_type=77\n"},
    {"/etc/web.conf", "port=77\n"},
};

/// A board with that package. All settings are 77 in the old /etc and 55 in the new one.
struct PreparedBoard : FakeBoard {
    PreparedBoard()
    {
        static const Words words = WordsIn(kPackage);
        RunLine(*this, words);
        for (const auto &[path, text] : kSettings) {
            Write(path, text);
            new_etc[path] = text;
            std::ranges::replace(new_etc[path], '7', '5');
        }
        package = Read("/tmp/flash3");
    }

    std::string package;
};

/// Lets each call of a run fail, or all calls from there on, and checks what always holds.
void SweepUpgrade(const char *line, FakeBoard::Fault fault)
{
    const bool once = fault.last == 1;
    for (;; ++fault.first, fault.last += once ? 1 : 0) {
        PreparedBoard board;
        board.Fail(fault);
        RunLine(board, WordsIn(line));
        const std::string transcript = board.TakeTranscript();
        const std::string &call = board.failed();
        if (call.empty()) {
            return;
        }
        SCOPED_TRACE(line + (" " + call) + " " + std::strerror(fault.error));
        const auto says = [&transcript](const std::string &text) {
            return transcript.find(text) != std::string::npos;
        };
        const bool complete = says("out Upgrade complete");
        EXPECT_NE(complete, says("out Upgrade fail"));
        EXPECT_EQ(complete, says("[CFlash_TEVWrite] write ["));
        EXPECT_TRUE(complete || !(says("\nerase ") || says("\nwrite /dev/mtd")));
        EXPECT_TRUE(says("sh /sbin/reboot"));
        EXPECT_EQ(board.Read("/tmp/flash3"), board.package);
        for (const int number : {1, 2, 3}) {
            const std::string device = "/dev/mtd/" + std::to_string(number);
            const std::string region = RegionOf(board.package, number);
            const bool failed = says(device + " erase fail[2]") ||
                                says(device + " write fail[2]") || says(device + " cmp fail[2]");
            EXPECT_TRUE(!complete || board.nodes[device].bytes.starts_with(region) ||
                        (failed && !once));
        }
        if (once) {
            const bool leaves_scratch = call.starts_with("rename");
            EXPECT_EQ(board.Read("/etc/temp.conf") != "(none)", leaves_scratch);
            const auto changed = std::ranges::count_if(kSettings, [&board](const auto &setting) {
                return board.Read(setting.first) != setting.second;
            });
            EXPECT_TRUE(!complete || changed <= 1 || leaves_scratch ||
                        call.starts_with("system /bin/mount"));
        }
    }
}

} // namespace

TEST(Sweep, AnUpgradeEndsAndTellsTheTruthWhateverFails)
{
    for (const char *line : {"$ upgrade /tmp/flash3 -v", "$ xupgrade -b -i"}) {
        SweepUpgrade(line, {"", EIO});
        SweepUpgrade(line, {"", EIO, 1, INT_MAX});
        // Reading no bytes of a configuration file is no fault: an empty file reads like this.
        SweepUpgrade(line, {"", 0, 1, 1, "/tmp/flash3"});
        SweepUpgrade(line, {"", 0, 1, 1, "/dev/mtd"});
    }
}

TEST(Sweep, OneCallThatFailsLeavesTheOldConfigurationFileOrTheNewOne)
{
    const std::string rest = std::string(20'000, 'x') + "\n"; // takes several reads and writes
    const std::pair<int, const char *> writers[] = {
        {-3, "$ CUTIL_SetConfValue /etc/a.conf key 9"},
        {-1, "$ CUTIL_SetConfValueSep = /etc/a.conf key 9"},
        {-1, "$ CUTIL_SetFileValue /etc/a.conf /etc/temp.conf key 9"},
    };
    for (const auto &[lowest, line] : writers) {
        for (int nth = 1;; ++nth) {
            FakeBoard board;
            board.Write("/etc/a.conf", "key=1\n" + rest);
            board.Fail({"", ENOSPC, nth, nth});
            RunLine(board, WordsIn(line));
            const std::string &call = board.failed();
            if (call.empty()) {
                break;
            }
            SCOPED_TRACE(line + (" " + call));
            // Only the first writer distinguishes failures and checks whether the file is in use.
            const bool looks = lowest == -3 && nth == 1;
            const bool done = looks || call == "close /etc/a.conf";
            const int later = call.starts_with("rename") ? -3 : -2;
            const int failure = call.ends_with("/etc/a.conf") ? -1 : later;
            const std::string found = board.TakeTranscript();
            const int result = done ? 0 : std::max(failure, lowest);
            const std::string file = (done ? "key=9\n" : "key=1\n") + rest;
            EXPECT_TRUE(found.ends_with("\n= " + std::to_string(result) + " " + Escaped(file)))
                << found;
            EXPECT_EQ(found.starts_with("\nout"), call.starts_with("open") && !looks);
            EXPECT_EQ(board.Read("/etc/temp.conf") != "(none)", call.starts_with("rename"));
        }
    }
}

// This library has the same texts as the board's logs always had.
TEST(Sweep, ErrorTextsAreThoseOfTheLibraryOfTheTests)
{
    for (int error = -1; error < 140; ++error) {
        const std::string text = ErrorText(error); // a copy: strerror reuses its buffer
        EXPECT_EQ(text, strerror(error));
    }
}
