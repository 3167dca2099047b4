// Every outside call fails, each in turn, and the flash is bad in every way.
#include <algorithm>
#include <regex>
#include <sstream>

#include "flash/installer.h"
#include "tests/fake_board.h"
#include "tests/unit/package_builder.h"
#include "util/conf_writer.h"

namespace
{

/// A board with a package that it accepts. All settings are 77, and 5 in the new /etc.
struct PreparedBoard : FakeBoard {
    /// With 9000 bytes a region takes three blocks of its partition and two reads of the package.
    explicit PreparedBoard(size_t size = 9000)
        : package{.marker = "ABCD",
                  .kernel = ImageBuilder{std::string(size, 'J')}.Build(),
                  .second = std::string(size, 'R'),
                  .etc = "\x85\x19" + std::string(size, 'F')}
    {
        for (const char *name :
             {"network/network", "network/wireless", "system", "serverinfo", "cam_model"}) {
            new_etc["/etc/" + std::string{name} + ".conf"] = "all=5\n";
        }
        new_etc["/etc/tcp_server.conf"] = "server_port=5\n";
        new_etc["/etc/stream.conf"] = "stream_1_port=5\nstream_2_port=5\nstream_3_port=5\n";
        new_etc["/etc/videodecoder.conf"] = "video_type=5\n";
        new_etc["/etc/web.conf"] = "port=5\n";
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

    static std::string Carried(const std::string &text)
    {
        return std::regex_replace(text, std::regex{"=5"}, "=77");
    }

    /// The files whose settings were not all carried over, each with the first digits of them: 7
    /// was carried over, 5 was not, 0 is of an old file that gave nothing, others are defaults.
    [[nodiscard]] std::string Changed() const
    {
        std::string changed;
        for (const auto &[path, text] : new_etc) {
            const std::string found = Read(path);
            if (found != Carried(text)) {
                changed += path + " " +
                           std::regex_replace(found, std::regex{"\\w+=(\\d)\\d*\n"}, "$1") + "\n";
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

    const PackageBuilder package;
};

/// The transcript but for what erasing, writing and comparing do, and for counts.
std::string Steps(const FakeBoard &board)
{
    return std::regex_replace(board.transcript(),
                              std::regex{"\n(err|erase|read|write|sleep|.*\\[CFlash_(Erase|NWrite|"
                                         "Confirm)\\]).*(?=\n)| x\\d+(?=\n)"},
                              "");
}

/// What follows when a call fails. The first row whose pattern is the whole of FakeBoard::failed
/// decides; "0 " stands in front of that when the call did not fail but moved no bytes.
struct Row {
    std::string call;
    int result = 0;
    std::string lines = {}; ///< that a good run does not write; @ is a partition, $1 of the pattern
    std::string changed = {}; ///< the pattern of PreparedBoard::Changed after a result of 0
};

Row FindRow(const std::vector<Row> &rows, const std::string &call)
{
    for (const Row &row : rows) {
        std::smatch match;
        if (std::regex_match(call, match, std::regex{row.call})) {
            return {call, row.result, match.format(row.lines), match.format(row.changed)};
        }
    }
    ADD_FAILURE() << "no row for it";
    return {};
}

const std::string kNoFile = "out [CUTIL_SetConfValue] we can't open the file : ";
const std::string kOneNew = " (5|577|757|775)\n";
const std::string kEraseFails = "syslog alert [CFlash_TEVWrite] @ erase fail[0]\\n\n";
const std::string kWriteFails = "syslog alert [CFlash_TEVWrite] @ write fail[0]\\n\n";
const std::string kCompareFails = "syslog alert [CFlash_TEVWrite] @ cmp fail[0]\\n\n";
const std::string kWrongImage = "syslog alert flash1 is not correct\\n\n"
                                "out [ERROR] CFlash_TEVWrite : chech Image\n";

const std::vector<Row> kInstaller = {
    // what the board accepts
    {"fread /usr/upgrade 2.1", -1,
     "syslog alert CHECK VERSION : 1 vs 0\\n\nsyslog alert VERSION is not match 1 : 1 vs 0\\n\n"},
    {"f(open|read) /usr/upgrade .*"},
    {"fopen /etc/oem_marker.conf .*", -1,
     "syslog alert CHECK MAGIC_NUMBER : 44434241 vs 5a595857\\n\n"
     "syslog alert MAGIC_NUMBER is not match 1 : 44434241 vs 5a595857\\n\n"},
    {"fread /etc/oem_marker.conf .*", -1,
     "syslog alert CHECK MAGIC_NUMBER : 44434241 vs 00000000\\n\n"
     "syslog alert MAGIC_NUMBER is not match 1 : 44434241 vs 00000000\\n\n"},
    {"(0 )?(open|read|fstat) /tmp/flash3 1.*", -1},
    // the settings, read and written
    {"system .*cp .*(/etc/network/network.conf).*", 0, "", "$1 .none.\n"}, // removed before
    {"system .*cp .*(/etc/\\S+.conf).*", 0, "", "$1 5\n"},
    {"access /bin/webs .*", 0, kNoFile + "/etc/lighttpd/lighttpd.conf\n", "/etc/web.conf 5\n"},
    {"(access|system) .*(lighttpd|fuser|rm).*"},
    {"system /bin/mount .*", 0,
     kNoFile + "/etc/tcp_server.conf\n" + kNoFile + "/etc/stream.conf\n" + kNoFile +
         "/etc/videodecoder.conf\n" + kNoFile + "/etc/web.conf\n",
     "(/etc/(network/.*|tcp_server|stream|videodecoder|web).conf .none.\n){6}"},
    {"fopen /etc/temp.conf \\d*[13579].1"}, // is it in use?
    {"fopen (/etc/temp.conf) .*", 0, kNoFile + "$1\n", ".*" + kOneNew},
    {"f(write|close) /etc/temp.conf .*", 0, "", ".*" + kOneNew},
    {"rename /etc/temp.conf 12.1", 0, "", "/etc/web.conf 5\n"}, // the last one
    {"rename .*", 0, "out [CUTIL_SetConfValue] temp.conf is already used ...\n",
     "(.* (5|555|755|775)\n)*"},
    {"fopen (/etc/stream.conf|/etc/\\w+.conf(?= 1)) [1-3].1", 0, "", "$1 (1|8|0|177|717|771)\n"},
    {"fread (/etc/stream.conf|/etc/\\w+.conf(?= 1)) [1-3].1", 0, "", "$1 (0|077|707|770)\n"},
    {"fopen (/etc/\\w+.conf) .*", 0, kNoFile + "$1\n", "$1" + kOneNew},
    {"fread (/etc/\\w+.conf) .*", 0, "", "$1" + kOneNew},
    {"fclose .*"},
    // the checks; the file system's takes a failed read for the end of the file
    {"umount .*", -1,
     "out [ERROR] /etc : umount [CFlash_TEVWrite], errno : 5, Input/output error\n"},
    {"f(open|seek) /tmp/flash3 2.1", -1, kWrongImage},
    {"(0 )?fread /tmp/flash3 [2-9].1"}, // what the seek reads, it can do without
    {"(0 )?fread /tmp/flash3 2.2", -1, kWrongImage},
    {"0 fread /tmp/flash3 2.3", -1,
     "syslog alert [CFlash_CheckImage] filencrc32 error\\n\n" + kWrongImage},
    {"fread /tmp/flash3 2.3"}, // is tried again
    {"fopen /tmp/flash3 3.1", -1,
     "syslog alert flash2 is not correct\\n\nout [ERROR] CFlash_TEVWrite : check JFFS2\n"},
    {"(0 )?f(read|seek) /tmp/flash3 3.*"},
    // the partitions: an attempt is lost
    {"(open|ioctl) /dev/.* 1.1", 0, kEraseFails},
    {"ioctl .* 1.5"}, // a block that the package does not need
    {"ioctl .*", 0, kCompareFails},
    {"(open|write) /dev/.* 2.*", 0, kWriteFails},
    {"(open|read) /dev/.* 3.*", 0, kCompareFails},
    {"f(open|seek|read) /tmp/flash3 [468].*", 0, kWriteFails},
    {"f(open|seek|read) /tmp/flash3 [579].*", 0, kCompareFails},
    {"0 fread /tmp/flash3 [468].*", 0, kCompareFails}, // a package that ends early
    {"0 (read|write|fread) .*"},
};

const std::vector<Row> kWriters = {
    {"CUTIL_SetConfValue fopen /etc/temp.conf 1.1"}, // is it in use?
    {"(\\w+Value)\\w* fopen (/etc/a.conf) .*", -1, "out [$1] we can't open the file : $2\n"},
    {"(\\w+Value)\\w* fopen (/etc/\\S+) .*", -2, "out [$1] we can't open the file : $2\n"},
    {"\\w+ fread .*", -1},
    {"\\w+ fclose /etc/a.conf .*"},
    {"\\w+ f(write|close) .*", -2},
    {"\\w+ rename .*", -3},
};

} // namespace

TEST(Faults, EndTheInstallationOrAreLivedWith)
{
    PreparedBoard good_board;
    ASSERT_EQ(good_board.Install(), 0);
    const std::string good = Steps(good_board);
    // Of a configuration file no bytes are no fault: that is how an empty one reads.
    for (const auto &[error, where] : {std::pair{EIO, ""}, {0, "/tmp/flash3"}, {0, "/dev/mtd"}}) {
        for (int nth = 1;; ++nth) {
            PreparedBoard board;
            board.Fail("", error, nth, where);
            const int result = board.Install();
            if (board.failed().empty()) {
                break;
            }
            const std::string call = (error == 0 ? "0 " : "") + board.failed();
            SCOPED_TRACE(call);
            const Row expected = FindRow(kInstaller, call);
            EXPECT_EQ(result, expected.result);

            // What a good run says comes in its order, all of it when the result is 0.
            std::string news;
            std::string_view rest = good;
            std::istringstream said{Steps(board)};
            for (std::string line; std::getline(said, line);) {
                line += "\n";
                rest.starts_with(line) ? rest.remove_prefix(line.size()) : void(news += line);
            }
            EXPECT_EQ(std::regex_replace(news, std::regex{"/dev/mtd/."}, "@"), expected.lines);
            EXPECT_TRUE(rest.empty() || result != 0);

            EXPECT_EQ(board.TouchedFlash(), result == 0);
            for (const auto &[partition, flash] : board.mtd) {
                EXPECT_GE(board.RightBytes(partition), result == 0 ? 3 * FakeMtd::kBlock : 0);
            }
            const bool unmounted = board.transcript({"umount"}) != "\n";
            EXPECT_TRUE(std::regex_match(board.Changed(), std::regex{result == 0 ? expected.changed
                                                                     : unmounted ? "(.*.none.\n){9}"
                                                                                 : ""}))
                << board.Changed();
            EXPECT_EQ(board.Read("/etc/temp.conf") != "(none)", call.starts_with("rename"));
            EXPECT_EQ(board.Read("/tmp/flash3"), board.package.Build());
        }
    }
}

TEST(Faults, LeaveConfigurationFilesWhole)
{
    const std::pair<std::string, int (*)()> writers[] = {
        {"CUTIL_SetConfValue", [] { return CUTIL_SetConfValue("/etc/a.conf", "key", "9"); }},
        {"CUTIL_SetConfValueSep",
         [] { return CUTIL_SetConfValueSep('=', "/etc/a.conf", "key", "9"); }},
        {"CUTIL_SetFileValue",
         [] { return CUTIL_SetFileValue("/etc/a.conf", "/etc/my.tmp", "key", "9"); }},
    };
    const std::string rest = std::string(20'000, 'x') + "\n"; // takes several reads and writes
    for (const auto &[name, writer] : writers) {
        for (int nth = 1;; ++nth) {
            FakeBoard board;
            board.Write("/etc/a.conf", "key=1\n" + rest);
            board.Fail("", ENOSPC, nth);
            const int result = board.Run(writer);
            if (board.failed().empty()) {
                break;
            }
            SCOPED_TRACE(name + " " + board.failed());
            const Row expected = FindRow(kWriters, name + " " + board.failed());
            // Only the first one tells its failures apart.
            EXPECT_EQ(result, name == "CUTIL_SetConfValue" ? expected.result
                                                           : std::max(expected.result, -1));
            EXPECT_EQ(board.transcript(), "\n" + expected.lines);
            EXPECT_EQ(board.Read("/etc/a.conf"), (result == 0 ? "key=9\n" : "key=1\n") + rest);
            EXPECT_EQ(board.Read("/etc/temp.conf") + board.Read("/etc/my.tmp") != "(none)(none)",
                      expected.result == -3);
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
            EXPECT_TRUE(
                std::regex_match(board.Changed(), std::regex{"(.* (\\d|\\d{3}|.none.)\n)*"}))
                << board.Changed();
            EXPECT_EQ(board.Read("/tmp/flash3"), board.package.Build());
        }
    }
}

TEST(BadFlash, CostsAttemptsAndNeverAnotherPartition)
{
    constexpr size_t kBlock = FakeMtd::kBlock;
    // What fails, in the letters of the log lines and with the attempt that ends; then how many
    // bytes of the partition are right.
    const std::tuple<FakeMtd::BadSpots, std::string, size_t> cases[] = {
        {{}, "", 4 * kBlock},
        {{.unerasable_block = {0, 1}}, "MTD c0 ", 4 * kBlock},
        {{.unerasable_block = {2, 2}}, "MTD c0 MTD c1 ", 4 * kBlock},
        {{.unerasable_block = {1}}, "MTD c0 MTD c1 MTD c2 ", kBlock},
        {{.unerasable_block = {3}}, "MTD ", 3 * kBlock}, // behind the region
        {{.unwritable_block = {0, 1}}, "w0 ", 4 * kBlock},
        {{.unwritable_block = {1, 2}}, "w0 w1 ", 4 * kBlock},
        {{.unwritable_block = {2}}, "w0 w1 w2 ", 2 * kBlock},
        {{.stuck_byte = {511, 2}}, "c0 c1 ", 4 * kBlock},
        {{.stuck_byte = {512}}, "c0 c1 c2 ", 512},
        {{.flipping_byte = {100, 1}}, "c0 ", 4 * kBlock},
        {{.flipping_byte = {8999, 2}}, "c0 c1 ", 4 * kBlock},
        {{.flipping_byte = {5000}}, "c0 c1 c2 ", 5000},
        {{{3}, {1, 1}, {}, {5000, 1}}, "MTD w0 MTD c1 MTD ", 3 * kBlock}, // of everything
        {{{0, 1}, {2, 1}, {200}, {}}, "MTD w0 c1 c2 ", 200}};
    for (const std::string bad : {"/dev/mtd/1", "/dev/mtd/2", "/dev/mtd/3"}) {
        const std::regex failure{"syslog alert (?: +\\[CFlash_Erase\\] (MTD) Erase failure \\[" +
                                 bad + "\\]|\\[CFlash_TEVWrite\\] " + bad +
                                 " (\\w)\\w+ fail\\[(.)\\])\\\\n\n"};
        for (const auto &[spots, failures, right_bytes] : cases) {
            SCOPED_TRACE(bad + " " + failures);
            PreparedBoard board;
            board.mtd[bad].bad = spots;
            EXPECT_EQ(board.Install(), 0);
            const std::string said =
                board.transcript({"syslog alert     ", "syslog alert [CFlash_TEVWrite] /"});
            EXPECT_EQ(std::regex_replace(said, failure, "$1$2$3 "), "\n" + failures);
            EXPECT_EQ(board.transcript({"out CF"}), "\nout CFlash_TEVWrite : flash1 complete\n"
                                                    "out CFlash_TEVWrite : flash2 complete\n"
                                                    "out CFlash_TEVWrite : flash3 complete\n");
            for (const auto &[partition, flash] : board.mtd) {
                EXPECT_EQ(board.RightBytes(partition), partition == bad ? right_bytes : 4 * kBlock);
            }
            EXPECT_EQ(board.Changed(), "");
        }
    }
}
