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

// A package that the board accepts. Each region takes three blocks of its partition.
constexpr const char *kPackage =
    "+ package marker=ABCD data={J*9000} second={R*9000} etc=\\x85\\x19{F*9000} "
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

    /// Runs the line. Returns whether it touched flash.
    bool Runs(const std::string &line)
    {
        RunLine(*this, WordsIn(line));
        transcript = TakeTranscript();
        return Says("\nerase ") || Says("\nwrite /dev/mtd");
    }

    [[nodiscard]] bool Says(const std::string &text) const
    {
        return transcript.find(text) != std::string::npos;
    }

    /// Whether the partition holds its region, or the log says that all attempts failed.
    [[nodiscard]] bool IsWritten(int number, bool or_failed) const
    {
        const std::string device = "/dev/mtd/" + std::to_string(number);
        const std::string place = "[CFlash_TEVWrite] " + device;
        return devices.at(device).bytes.starts_with(RegionOf(package, number)) ||
               (or_failed && (Says(place + " erase fail[2]") || Says(place + " write fail[2]") ||
                              Says(place + " cmp fail[2]")));
    }

    std::string package, transcript;
};

} // namespace

TEST(Sweep, OneCallThatFailsStopsAnInstallationBeforeItTouchesFlashOrIsLivedWith)
{
    // Reading no bytes of a configuration file is no fault: an empty file reads like this.
    for (const auto &[error, where] : {std::pair{EIO, ""}, {0, "/tmp/flash3"}, {0, "/dev/mtd"}}) {
        for (int nth = 1;; ++nth) {
            PreparedBoard board;
            board.Fail({"", error, nth, nth, where});
            const bool touched = board.Runs("$ install 1");
            const std::string &call = board.failed();
            if (call.empty()) {
                break;
            }
            SCOPED_TRACE(call + " " + std::strerror(error));
            EXPECT_EQ(touched, board.Says("\n= 0"));
            EXPECT_EQ(board.Read("/tmp/flash3"), board.package);
            EXPECT_EQ(board.Read("/etc/temp.conf") != "(none)", call.starts_with("rename"));
            if (!touched) {
                continue;
            }
            for (const int number : {1, 2, 3}) {
                EXPECT_TRUE(board.IsWritten(number, false));
            }
            const bool costs_several =
                call.starts_with("rename") || call.starts_with("system /bin/mount");
            EXPECT_LE(std::ranges::count_if(kSettings,
                                            [&](const auto &setting) {
                                                return board.Read(setting.first) != setting.second;
                                            }),
                      costs_several ? 9 : 1);
        }
    }
}

TEST(Sweep, AnUpgradeEndsAndTellsTheTruthWhateverFails)
{
    for (const char *line : {"$ upgrade /tmp/flash3 -v", "$ xupgrade -b"}) {
        for (int nth = 1, all_from_there = 0; all_from_there <= 1; ++nth) {
            PreparedBoard board;
            board.Fail({"", EIO, nth, all_from_there != 0 ? INT_MAX : nth});
            board.Runs(line);
            if (board.failed().empty()) {
                nth = 0;
                ++all_from_there;
                continue;
            }
            SCOPED_TRACE(line + (" " + board.failed()));
            EXPECT_TRUE(board.Says("sh /sbin/reboot"));
            const bool complete = board.Says("out Upgrade complete.");
            EXPECT_NE(complete, board.Says("out Upgrade fail."));
            EXPECT_EQ(complete, board.Says("syslog alert [CFlash_TEVWrite] write"));
            EXPECT_EQ(board.Read("/tmp/flash3"), board.package);
            for (const int number : {1, 2, 3}) {
                EXPECT_TRUE(!complete || board.IsWritten(number, true));
            }
        }
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
            const int failure = call.ends_with("/etc/a.conf") ? -1
                                : call.starts_with("rename")  ? -3
                                                              : -2;
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
