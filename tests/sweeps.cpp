// What must hold whatever fails: rules over every outside call, and over bad flash.
#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "app/dispatcher.h"
#include "flash/installer.h"
#include "tests/packages.h"
#include "tests/words.h"
#include "util/conf_writer.h"
#include "util/error_text.h"

namespace
{

/// A board with a package that it accepts, and settings that are 77 in the old /etc and 5 in the
/// new one. With 9000 bytes a region takes three blocks of its partition.
struct PreparedBoard : FakeBoard {
    static std::map<std::string, std::string> Settings(const std::string &value)
    {
        std::map<std::string, std::string> files;
        for (const char *name :
             {"network/network", "network/wireless", "system", "serverinfo", "cam_model"}) {
            files["/etc/" + std::string{name} + ".conf"] = "all=" + value + "\n";
        }
        files["/etc/tcp_server.conf"] = "server_port=" + value + "\n";
        files["/etc/stream.conf"] = "stream_1_port=" + value + "\nstream_2_port=" + value +
                                    "\nstream_3_port=" + value + "\n";
        files["/etc/videodecoder.conf"] = "video_type=" + value + "\n";
        files["/etc/web.conf"] = "port=" + value + "\n";
        return files;
    }

    PreparedBoard()
    {
        PackageBuilder builder{.marker = "ABCD"};
        builder.kernel.data = std::string(9000, 'J');
        builder.second = std::string(9000, 'R');
        builder.etc = "\x85\x19" + std::string(9000, 'F');
        package = builder.Build();
        new_etc = Settings("5");
        for (const auto &[path, text] : Settings("77")) {
            Write(path, text);
        }
        Write("/usr/upgrade", "MARKER=WXYZ\nVERSION=1\n");
        Write("/etc/oem_marker.conf", "MARKER=ABCD\n");
        Write("/bin/webs", "");
        Write("/tmp/flash3", package);
    }

    /// Installs and takes the transcript. Returns the result.
    int Install()
    {
        int result = 1;
        Run([&] {
            result = CFlash_TEVWrite("/tmp/flash3", "/dev/mtd/1", "/dev/mtd/2", "/dev/mtd/3",
                                     UPGRADE_FLAG_CHECK_MARKER);
        });
        Take();
        return result;
    }

    void Take()
    {
        for (const std::string &line : TakeTranscript()) {
            transcript += line + "\n";
        }
    }

    [[nodiscard]] bool Says(const std::string &text) const
    {
        return transcript.find(text) != std::string::npos;
    }

    [[nodiscard]] bool TouchedFlash() const { return Says("\nerase ") || Says("\nwrite /dev/mtd"); }

    /// Whether the partition is as the package wants it, up to a block behind the region.
    [[nodiscard]] bool Holds(int number) const
    {
        const std::string wanted = RegionOf(package, number);
        return devices.at("/dev/mtd/" + std::to_string(number)).bytes.starts_with(wanted);
    }

    /// Whether the partition is said to have failed all its attempts.
    [[nodiscard]] bool GaveUp(int number) const
    {
        const std::string place = "[CFlash_TEVWrite] /dev/mtd/" + std::to_string(number);
        return Says(place + " erase fail[2]") || Says(place + " write fail[2]") ||
               Says(place + " cmp fail[2]");
    }

    /// How many settings files are not those of the old /etc.
    [[nodiscard]] int Changed() const
    {
        int changed = 0;
        for (const auto &[path, text] : Settings("77")) {
            changed += Read(path) != text ? 1 : 0;
        }
        return changed;
    }

    std::string package, transcript = "\n";
};

} // namespace

TEST(Sweep, OneCallThatFailsStopsAnInstallationBeforeItTouchesFlashOrIsLivedWith)
{
    // Of a configuration file no bytes are no fault: that is how an empty one reads.
    for (const auto &[error, where] : {std::pair{EIO, ""}, {0, "/tmp/flash3"}, {0, "/dev/mtd"}}) {
        for (int nth = 1;; ++nth) {
            PreparedBoard board;
            board.Fail({"", error, nth, nth, where});
            const int result = board.Install();
            const std::string &call = board.failed();
            if (call.empty()) {
                break;
            }
            SCOPED_TRACE(call + " " + std::strerror(error));
            EXPECT_EQ(board.TouchedFlash(), result == 0);
            EXPECT_EQ(board.Read("/tmp/flash3"), board.package);
            EXPECT_EQ(board.Read("/etc/temp.conf") != "(none)", call.starts_with("rename"));
            if (result == 0) {
                EXPECT_TRUE(board.Holds(1) && board.Holds(2) && board.Holds(3));
                const bool several =
                    call.starts_with("rename") || call.starts_with("system /bin/mount");
                EXPECT_LE(board.Changed(), several ? 9 : 1);
            }
        }
    }
}

TEST(Sweep, OneCallThatFailsLeavesTheOldConfigurationFileOrTheNewOne)
{
    const std::string rest = std::string(20'000, 'x') + "\n"; // takes several reads and writes
    const std::pair<int, int (*)()> writers[] = {
        {-3, [] { return CUTIL_SetConfValue("/etc/a.conf", "key", "9"); }},
        {-1, [] { return CUTIL_SetConfValueSep('=', "/etc/a.conf", "key", "9"); }},
        {-1, [] { return CUTIL_SetFileValue("/etc/a.conf", "/etc/temp.conf", "key", "9"); }},
    };
    for (const auto &[lowest, writer] : writers) {
        for (int nth = 1;; ++nth) {
            FakeBoard board;
            board.Write("/etc/a.conf", "key=1\n" + rest);
            board.Fail({"", ENOSPC, nth, nth});
            int result = 1;
            board.Run([&] { result = writer(); });
            const std::string &call = board.failed();
            if (call.empty()) {
                break;
            }
            SCOPED_TRACE(call);
            // Only the first writer tells failures apart, and looks whether the file is in use.
            const bool looks = lowest == -3 && nth == 1;
            const bool harmless = looks || call == "fclose /etc/a.conf";
            const int wanted = harmless                        ? 0
                               : call.ends_with("/etc/a.conf") ? -1
                               : call.starts_with("rename")    ? -3
                                                               : -2;
            EXPECT_EQ(result, std::max(wanted, lowest));
            EXPECT_EQ(board.Read("/etc/a.conf"), (result == 0 ? "key=9\n" : "key=1\n") + rest);
            EXPECT_EQ(board.Read("/etc/temp.conf") != "(none)", call.starts_with("rename"));
            EXPECT_EQ(board.TakeTranscript().size(), call.starts_with("fopen") && !looks ? 1U : 0U);
        }
    }
}

TEST(Sweep, AnUpgradeEndsAndTellsTheTruthWhateverFails)
{
    for (const bool all_from_there : {false, true}) {
        for (const Words &words :
             {Words{"$", "upgrade", "/tmp/flash3", "-v"}, {"$", "xupgrade", "-b"}}) {
            for (int nth = 1;; ++nth) {
                PreparedBoard board;
                board.Write("/proc/30/cmdline", "/bin/webs");
                board.Fail({"", EIO, nth, all_from_there ? INT_MAX : nth});
                RunLine(board, words);
                if (board.failed().empty()) {
                    break;
                }
                SCOPED_TRACE(words[1] + " " + board.failed());
                board.Take();
                EXPECT_TRUE(board.Says("sh /sbin/reboot"));
                const bool complete = board.Says("out Upgrade complete.");
                EXPECT_NE(complete, board.Says("out Upgrade fail."));
                EXPECT_EQ(board.Says("syslog alert [CFlash_TEVWrite] write"), complete);
                EXPECT_EQ(board.Read("/tmp/flash3"), board.package);
                // A region that fails all its attempts is logged and passed over.
                for (int number = 1; number <= 3 && complete; ++number) {
                    EXPECT_TRUE(board.Holds(number) || board.GaveUp(number));
                }
            }
        }
    }
}

TEST(Sweep, BadFlashCostsAttemptsAndNeverAnotherPartition)
{
    // A call that fails, from one time to another, or a byte that sticks; what is logged: the block
    // that does not erase, or the step and the attempt that it ends.
    struct Bad {
        const char *call;
        int first, last;
        const char *log;
    };
    const Bad cases[] = {
        {"ioctl", 1, 1, "erase0"},
        {"open", 1, 1, "erase0"},
        {"open", 2, 2, "write0"},
        {"write", 1, 1, "write0"},
        {"open", 3, 3, "cmp0"},
        {"read", 1, 1, "cmp0"},
        {"ioctl", 2, 2, "block cmp0"},
        {"ioctl", 5, 5, "block"}, // behind the region
        {"ioctl", 2, 2, "block cmp0"},
        {"write", 1, 2, "write0 write1"},
        {"write", 1, 3, "write0 write1 write2"},
        {"open", 1, 9, "erase0 erase1 erase2"},
        {"stuck", 511, 1, "cmp0"},
        {"stuck", 512, 2, "cmp0 cmp1"},
        {"stuck", 8999, 3, "cmp0 cmp1 cmp2"},
    };
    for (int bad = 1; bad <= 3; ++bad) {
        const std::string device = "/dev/mtd/" + std::to_string(bad);
        for (const auto &[call, first, last, log] : cases) {
            SCOPED_TRACE(device + " " + call + " " + log);
            PreparedBoard board;
            if (call == std::string{"stuck"}) {
                board.devices[device].stuck_bytes[static_cast<size_t>(first)] = last;
            } else {
                board.Fail({call, EIO, first, last, device});
            }
            EXPECT_EQ(board.Install(), 0);
            std::string logged;
            std::istringstream lines{board.transcript};
            for (std::string line; std::getline(lines, line);) {
                const std::string begin = "syslog alert [CFlash_TEVWrite] " + device + " ";
                const size_t fails = line.find(" fail[");
                logged +=
                    line.find("MTD Erase failure [" + device) != std::string::npos ? " block"
                    : line.starts_with(begin)
                        ? " " + line.substr(begin.size(), fails - begin.size()) + line[fails + 6]
                        : "";
            }
            EXPECT_EQ(logged, std::string{" "} + log);
            for (int number = 1; number <= 3; ++number) {
                EXPECT_EQ(board.Holds(number), number != bad || logged.back() != '2');
            }
            EXPECT_EQ(board.Changed(), 0);
        }
    }
}

// This library's words are the ones that the board's logs have always had.
TEST(Sweep, ErrorTextsAreThoseOfTheLibraryOfTheTests)
{
    for (int error = -1; error < 140; ++error) {
        const std::string text = ErrorText(error); // a copy: strerror reuses its buffer
        EXPECT_EQ(text, strerror(error));
    }
}
