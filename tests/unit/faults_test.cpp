// Every outside call fails, each in turn, and the flash is bad in every way.
#include <algorithm>

#include "flash/installer.h"
#include "tests/fake_board.h"
#include "tests/unit/package_builder.h"
#include "util/conf_writer.h"

namespace
{

/// The settings that the installer carries over, as they are in the new /etc: 5.
const std::map<std::string, std::string> kNewEtc = {
    {"/etc/network/network.conf", "all=5\n"},
    {"/etc/network/wireless.conf", "all=5\n"},
    {"/etc/system.conf", "all=5\n"},
    {"/etc/serverinfo.conf", "all=5\n"},
    {"/etc/cam_model.conf", "all=5\n"},
    {"/etc/tcp_server.conf", "server_port=5\n"},
    {"/etc/stream.conf", "stream_1_port=5\nstream_2_port=5\nstream_3_port=5\n"},
    {"/etc/videodecoder.conf", "video_type=5\n"},
    {"/etc/web.conf", "port=5\n"},
};

/// A board with a package that it accepts. All settings are 77, and 5 in the new /etc.
struct PreparedBoard : FakeBoard {
    /// With 9000 bytes a region takes three blocks of its partition and two reads of the package.
    explicit PreparedBoard(size_t size = 9000)
        : package{.marker = "ABCD",
                  .kernel = ImageBuilder{std::string(size, 'J')}.Build(),
                  .second = std::string(size, 'R'),
                  .etc = "\x85\x19" + std::string(size, 'F')}
    {
        new_etc = kNewEtc;
        for (const auto &[path, text] : new_etc) {
            Write(path, Carried(text));
        }
        Write("/usr/upgrade", "MARKER=WXYZ\nVERSION=1\nMODEL=0815\n");
        Write("/etc/oem_marker.conf", "MARKER=ABCD\n");
        Write("/bin/webs", "");
        Write("/tmp/flash3", package.Build());
    }

    int Install()
    {
        return Run(CFlash_TEVWrite, "/tmp/flash3", "/dev/mtd/1", "/dev/mtd/2", "/dev/mtd/3",
                   UPGRADE_FLAG_CHECK_MARKER | UPGRADE_FLAG_VERBOSE);
    }

    static std::string Carried(std::string text)
    {
        for (size_t at = 0; (at = text.find('5', at)) != std::string::npos;) {
            text.replace(at, 1, "77");
        }
        return text;
    }

    /// The files whose settings were not all carried over, each with the values that it has: 77 was
    /// carried over, 5 was not, 0 is of an old file that gave nothing, others are defaults.
    [[nodiscard]] std::string Changed() const
    {
        std::string changed;
        for (const auto &[path, text] : new_etc) {
            const std::string found = Read(path);
            changed += found == Carried(text) ? "" : " " + path.substr(5); // behind /etc/
            for (size_t at = 0;
                 found != Carried(text) && (at = found.find('=', at)) != found.npos;) {
                changed += " " + found.substr(at + 1, found.find('\n', at) - at - 1);
                ++at;
            }
        }
        return changed;
    }

    /// How many bytes of the partition are as the package wants them.
    [[nodiscard]] size_t RightBytes(const std::string &partition) const
    {
        const std::string *const regions[] = {&package.kernel, &package.second, &package.etc};
        std::string wanted = *regions[partition.back() - '1'];
        const std::vector<uint8_t> &bytes = mtd.at(partition).bytes;
        wanted.resize(bytes.size(), '\xff');
        const std::string found{bytes.begin(), bytes.end()};
        return static_cast<size_t>(std::ranges::mismatch(found, wanted).in1 - found.begin());
    }

    [[nodiscard]] bool TouchedFlash() const { return transcript({"erase", "write /dev"}) != "\n"; }

    /// What an installation does whatever fails.
    [[nodiscard]] std::string Steps() const
    {
        return transcript({"syslog alert C", "syslog alert [CFlash_TEVWrite] write", "sh", "umount",
                           "usleep", "out CF"});
    }

    const PackageBuilder package;
};

} // namespace

TEST(Faults, EndTheInstallationOrAreLivedWith)
{
    PreparedBoard good;
    ASSERT_EQ(good.Install(), 0);
    std::string ends = "\n"; // the calls without which nothing is installed
    // Those without which settings are not carried over: how many in a row cost what, and the
    // first.
    std::string costs = "\n";
    std::string first;
    std::string cost;
    int calls = 0;
    const auto count = [&](const std::string &call, const std::string &changed) {
        if (changed != cost) {
            costs += cost.empty() ? "" : std::to_string(calls) + " " + first + ":" + cost + "\n";
            first = call;
            cost = changed;
            calls = 0;
        }
        ++calls;
    };
    // Of a configuration file no bytes are no fault: that is how an empty one reads.
    for (const auto &[error, where] : {std::pair{EIO, ""}, {0, "/tmp/flash3"}, {0, "/dev/mtd"}}) {
        for (int nth = 1;; ++nth) {
            PreparedBoard board;
            board.Fail("", error, nth, where);
            const int result = board.Install();
            const std::string &call = board.failed();
            if (call.empty()) {
                break;
            }
            SCOPED_TRACE(call);
            EXPECT_EQ(board.TouchedFlash(), result == 0);
            EXPECT_EQ(board.Read("/tmp/flash3"), board.package.Build());
            EXPECT_EQ(board.Read("/etc/temp.conf") != "(none)", call.starts_with("rename"));
            if (result != 0) {
                EXPECT_EQ(result, -1);
                ends += call + (error == 0 ? " without bytes\n" : "\n");
                continue;
            }
            EXPECT_EQ(board.Steps(), good.Steps());
            for (const auto &[partition, flash] : board.mtd) {
                EXPECT_GE(board.RightBytes(partition), 3 * FakeMtd::kBlock);
            }
            count(call, board.Changed());
        }
    }
    EXPECT_EQ(ends, R"(
fopen /etc/oem_marker.conf 1.1
fread /etc/oem_marker.conf 1.1
fread /usr/upgrade 2.1
open /tmp/flash3 1.1
read /tmp/flash3 1.1
read /tmp/flash3 1.2
fstat /tmp/flash3 1.1
umount /etc 0.1
fopen /tmp/flash3 2.1
fseek /tmp/flash3 2.1
fread /tmp/flash3 2.2
fopen /tmp/flash3 3.1
read /tmp/flash3 1.1 without bytes
read /tmp/flash3 1.2 without bytes
fread /tmp/flash3 2.2 without bytes
fread /tmp/flash3 2.3 without bytes
)");
    count("", "");
    EXPECT_EQ(costs, R"(
1 system /bin/cp -dpR /etc/network/network.conf /tmp/network.conf 0.1: network/network.conf
1 system cp -dpR /etc/network/wireless.conf /tmp/wireless.conf 0.1: network/wireless.conf 5
1 system cp -dpR /etc/system.conf /tmp/system.conf 0.1: system.conf 5
1 system cp -dpR /etc/serverinfo.conf /tmp/serverinfo.conf 0.1: serverinfo.conf 5
1 system cp -dpR /etc/cam_model.conf /tmp/cam_model.conf 0.1: cam_model.conf 5
1 fopen /etc/tcp_server.conf 1.1: tcp_server.conf 1852
1 fread /etc/tcp_server.conf 1.1: tcp_server.conf 0
1 access /bin/webs 0.1: web.conf 5
1 fopen /etc/web.conf 1.1: web.conf 80
1 fread /etc/web.conf 1.1: web.conf 0
1 fopen /etc/stream.conf 1.1: stream.conf 1852 77 77
1 fread /etc/stream.conf 1.1: stream.conf 0 77 77
1 fopen /etc/stream.conf 2.1: stream.conf 77 1853 77
1 fread /etc/stream.conf 2.1: stream.conf 77 0 77
1 fopen /etc/stream.conf 3.1: stream.conf 77 77 1854
1 fread /etc/stream.conf 3.1: stream.conf 77 77 0
2 fopen /etc/videodecoder.conf 1.1: videodecoder.conf 0
1 system /bin/mount -t jffs2 /dev/mtdblock/3 /etc 0.1: network/network.conf network/wireless.conf stream.conf tcp_server.conf videodecoder.conf web.conf
1 system /bin/cp -dpR /tmp/network.conf /etc/network/network.conf 0.1: network/network.conf
1 system /bin/cp -dpR /tmp/wireless.conf /etc/network/wireless.conf 0.1: network/wireless.conf 5
1 system /bin/cp -dpR /tmp/system.conf /etc/system.conf 0.1: system.conf 5
1 system /bin/cp -dpR /tmp/serverinfo.conf /etc/serverinfo.conf 0.1: serverinfo.conf 5
1 system /bin/cp -dpR /tmp/cam_model.conf /etc/cam_model.conf 0.1: cam_model.conf 5
4 fopen /etc/tcp_server.conf 2.1: tcp_server.conf 5
2 fwrite /etc/temp.conf 2.1: tcp_server.conf 5
1 rename /etc/temp.conf 2.1: stream.conf 5 5 5 tcp_server.conf 5 videodecoder.conf 5 web.conf 5
4 fopen /etc/stream.conf 4.1: stream.conf 5 77 77
2 fwrite /etc/temp.conf 4.1: stream.conf 5 77 77
1 rename /etc/temp.conf 4.1: stream.conf 5 5 5 videodecoder.conf 5 web.conf 5
4 fopen /etc/stream.conf 5.1: stream.conf 77 5 77
2 fwrite /etc/temp.conf 6.1: stream.conf 77 5 77
1 rename /etc/temp.conf 6.1: stream.conf 77 5 5 videodecoder.conf 5 web.conf 5
4 fopen /etc/stream.conf 6.1: stream.conf 77 77 5
2 fwrite /etc/temp.conf 8.1: stream.conf 77 77 5
1 rename /etc/temp.conf 8.1: stream.conf 77 77 5 videodecoder.conf 5 web.conf 5
4 fopen /etc/videodecoder.conf 2.1: videodecoder.conf 5
2 fwrite /etc/temp.conf 10.1: videodecoder.conf 5
1 rename /etc/temp.conf 10.1: videodecoder.conf 5 web.conf 5
4 fopen /etc/web.conf 2.1: web.conf 5
3 fwrite /etc/temp.conf 12.1: web.conf 5
)");
}

TEST(Faults, LeaveConfigurationFilesWhole)
{
    const std::pair<std::string, int (*)()> writers[] = {
        {"CUTIL_SetConfValue", [] { return CUTIL_SetConfValue("/etc/a.conf", "key", "9"); }},
        {"CUTIL_SetConfValue",
         [] { return CUTIL_SetConfValueSep('=', "/etc/a.conf", "key", "9"); }},
        {"CUTIL_SetFileValue",
         [] { return CUTIL_SetFileValue("/etc/a.conf", "/etc/temp.conf", "key", "9"); }},
    };
    // The result after a call; the first row that begins it decides. Only the first writer tells
    // failures apart, and looks before whether the scratch file is in use.
    const std::pair<std::string, int> results[] = {
        {"fopen /etc/temp.conf 1", 0},
        {"fopen /etc/a.conf", -1},
        {"fread", -1},
        {"fclose /etc/a.conf", 0},
        {"fopen /etc/temp.conf", -2},
        {"fwrite", -2},
        {"fclose", -2},
        {"rename", -3},
    };
    const std::string rest = std::string(20'000, 'x') + "\n"; // takes several reads and writes
    for (const auto &[name, writer] : writers) {
        const bool is_first = writer == writers[0].second;
        for (int nth = 1;; ++nth) {
            FakeBoard board;
            board.Write("/etc/a.conf", "key=1\n" + rest);
            board.Fail("", ENOSPC, nth);
            const int result = board.Run(writer);
            const std::string &call = board.failed();
            if (call.empty()) {
                break;
            }
            SCOPED_TRACE(name + " " + call);
            const auto expected =
                std::ranges::find_if(results + (is_first ? 0 : 1), std::end(results),
                                     [&](const auto &row) { return call.starts_with(row.first); });
            ASSERT_NE(expected, std::end(results));
            EXPECT_EQ(result, is_first ? expected->second : std::max(expected->second, -1));
            const std::string path = call.substr(6, call.rfind(' ') - 6);
            EXPECT_EQ(board.transcript(),
                      call.starts_with("fopen") && result != 0
                          ? "\nout [" + name + "] we can't open the file : " + path + "\n"
                          : "\n");
            EXPECT_EQ(board.Read("/etc/a.conf"), (result == 0 ? "key=9\n" : "key=1\n") + rest);
            EXPECT_EQ(board.Read("/etc/temp.conf") != "(none)", call.starts_with("rename"));
        }
    }
}

TEST(Faults, NeverKeepAnAppletFromItsEnd)
{
    const std::tuple<std::vector<std::string>, bool, int> cases[] = {
        {{"upgrade", "/tmp/flash3", "-v"}, false, FakeBoard::kRebooted}, // one call fails
        {{"xupgrade", "-i"}, false, 0},
        {{"xupgrade", "-b"}, true, FakeBoard::kRebooted}, // all fail from there on
    };
    for (const auto &[words, faults_last, end] : cases) {
        for (int nth = 1;; ++nth) {
            PreparedBoard board{100};
            board.may_stay_open = words[0] == "xupgrade" ? 1 : 0; // the watchdog
            board.AddProcess(30, "/bin/webs");
            board.faults_last = faults_last;
            board.Fail("", EIO, nth);
            const int result = board.Start(words);
            if (board.failed().empty()) {
                break;
            }
            SCOPED_TRACE(words[0] + " " + board.failed());
            EXPECT_EQ(result, end);
            const std::string said = board.transcript({"syslog alert Upgrade", "out Upgrade"});
            const bool complete = said.find("complete.") != said.npos;
            EXPECT_NE(complete, said.find("fail.") != said.npos);
            EXPECT_TRUE(board.TouchedFlash() == complete || (faults_last && complete));
            EXPECT_EQ(board.Read("/tmp/flash3"), board.package.Build());
        }
    }
}

TEST(BadFlash, CostsAttemptsAndNeverAnotherPartition)
{
    constexpr size_t kBlock = FakeMtd::kBlock;
    using Bad = FakeMtd::BadSpots;
    // What is bad; a call that fails; what is logged: "block" that does not erase, or the step and
    // the attempt that it ends; how many bytes of the partition are right.
    const std::tuple<Bad, std::pair<std::string, int>, std::string, size_t> cases[] = {
        {{}, {}, "", 4 * kBlock},
        {{.unerasable_block = {0, 1}}, {}, "block cmp0 ", 4 * kBlock},
        {{.unerasable_block = {2, 2}}, {}, "block cmp0 block cmp1 ", 4 * kBlock},
        {{.unerasable_block = {1}}, {}, "block cmp0 block cmp1 block cmp2 ", kBlock},
        {{.unerasable_block = {3}}, {}, "block ", 3 * kBlock}, // behind the region
        {{.unwritable_block = {0, 1}}, {}, "write0 ", 4 * kBlock},
        {{.unwritable_block = {1, 2}}, {}, "write0 write1 ", 4 * kBlock},
        {{.unwritable_block = {2}}, {}, "write0 write1 write2 ", 2 * kBlock},
        {{.stuck_byte = {511, 2}}, {}, "cmp0 cmp1 ", 4 * kBlock},
        {{.stuck_byte = {512}}, {}, "cmp0 cmp1 cmp2 ", 512},
        {{.flipping_byte = {100, 1}}, {}, "cmp0 ", 4 * kBlock},
        {{.flipping_byte = {8999, 2}}, {}, "cmp0 cmp1 ", 4 * kBlock},
        {{.flipping_byte = {5000}}, {}, "cmp0 cmp1 cmp2 ", 5000},
        {{{3}, {1, 1}, {}, {5000, 1}}, {}, "block write0 block cmp1 block ", 3 * kBlock},
        {{{0, 1}, {2, 1}, {200}, {}}, {}, "block write0 cmp1 cmp2 ", 200},
        {{}, {"open", 1}, "erase0 ", 4 * kBlock},
        {{}, {"ioctl", 1}, "erase0 ", 4 * kBlock},
        {{}, {"open", 2}, "write0 ", 4 * kBlock},
        {{}, {"write", 1}, "write0 ", 4 * kBlock},
        {{}, {"open", 3}, "cmp0 ", 4 * kBlock},
        {{}, {"read", 1}, "cmp0 ", 4 * kBlock},
    };
    for (const std::string bad : {"/dev/mtd/1", "/dev/mtd/2", "/dev/mtd/3"}) {
        for (const auto &[spots, call, failures, right_bytes] : cases) {
            SCOPED_TRACE(bad + " " + failures);
            PreparedBoard board;
            board.mtd[bad].bad = spots;
            board.Fail(call.first.empty() ? "none" : call.first, EIO, call.second, bad);
            EXPECT_EQ(board.Install(), 0);
            std::string log = "\n";
            std::istringstream words{failures};
            for (std::string word; words >> word;) {
                log += word == "block"
                           ? "syslog alert     [CFlash_Erase] MTD Erase failure [" + bad + "]\\n\n"
                           : "syslog alert [CFlash_TEVWrite] " + bad + " " +
                                 word.substr(0, word.size() - 1) + " fail[" + word.back() +
                                 "]\\n\n";
            }
            EXPECT_EQ(board.transcript({"syslog alert     [CFlash_Erase] MTD",
                                        "syslog alert [CFlash_TEVWrite] /"}),
                      log);
            for (const auto &[partition, flash] : board.mtd) {
                EXPECT_EQ(board.RightBytes(partition), partition == bad ? right_bytes : 4 * kBlock);
            }
            EXPECT_EQ(board.Changed(), "");
        }
    }
}
