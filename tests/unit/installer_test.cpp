#include "flash/installer.h"

#include <unistd.h>

#include <functional>

#include "tests/fake_board.h"
#include "tests/unit/package_builder.h"

using namespace std::string_literals;
using Installer = BoardTest;

namespace
{

int Install(FakeBoard &board, const std::string &package, uint32_t flags = 0)
{
    if (!package.empty()) {
        board.Write("/tmp/flash3", package);
    }
    return board.Run(CFlash_TEVWrite, "/tmp/flash3", "/dev/mtd/1", "/dev/mtd/2", "/dev/mtd/3",
                     flags);
}

const std::string kVersionChecked = "\nsyslog alert CHECK VERSION : 1 vs 1\\n\n";

const std::string kSaving = R"(sh /bin/cp -dpR /etc/network/network.conf /tmp/network.conf
sh cp -dpR /etc/network/wireless.conf /tmp/wireless.conf
sh cp -dpR /etc/system.conf /tmp/system.conf
sh cp -dpR /etc/serverinfo.conf /tmp/serverinfo.conf
sh cp -dpR /etc/cam_model.conf /tmp/cam_model.conf
)";

std::string ReleasingEtc()
{
    std::string rounds;
    for (int round = 0; round < 10; ++round) {
        rounds += "sh fuser -m /etc/ | awk '{print $1}' | xargs kill -9\nusleep 100000\n";
    }
    return rounds;
}

const std::string kUnmounting = ReleasingEtc() + "umount /etc\n";

std::string Writing(const std::string &device, const std::string &place, const std::string &bytes)
{
    return "syslog alert [CFlash_TEVWrite] write [" + device + "]\\n\n" +
           "syslog alert [CFlash_Erase] =================> [" + device + "]\\n\n" + //
           "erase " + device + " x4\n" +                                            //
           "sleep 1\nsyslog alert [CFlash_NWrite] " + place + "\n" +                //
           "write " + device + " " + bytes + "\n" +                                 //
           "sleep 1\nsyslog alert [CFlash_Confirm] " + place + "\n" +               //
           "read " + device + " " + bytes + "\n";
}

const std::string kWritingAndMounting =
    Writing("/dev/mtd/1", "offset : 20, size : 1064", "1064 bytes x3") +
    Writing("/dev/mtd/2", "offset : 1084, size : 13", "13 bytes") +
    Writing("/dev/mtd/3", "offset : 1097, size : 14", "14 bytes") +
    "sh /bin/mount -t jffs2 /dev/mtdblock/3 /etc\n";

const std::string kRestoring = R"(sh /bin/rm -f /etc/network/network.conf
sh /bin/cp -dpR /tmp/network.conf /etc/network/network.conf
sh /bin/cp -dpR /tmp/wireless.conf /etc/network/wireless.conf
sh /bin/cp -dpR /tmp/system.conf /etc/system.conf
sh /bin/cp -dpR /tmp/serverinfo.conf /etc/serverinfo.conf
sh /bin/cp -dpR /tmp/cam_model.conf /etc/cam_model.conf
out [CUTIL_SetConfValue] we can't open the file : /etc/tcp_server.conf
out [CUTIL_SetConfValue] we can't open the file : /etc/stream.conf x3
out [CUTIL_SetConfValue] we can't open the file : /etc/videodecoder.conf
out [CUTIL_SetConfValue] we can't open the file : /etc/lighttpd/lighttpd.conf
)";

/// A file without text is one that is not there.
void WriteIfAny(FakeBoard &board, const std::string &path, const std::string &text)
{
    if (!text.empty()) {
        board.Write(path, text);
    }
}

/// Whether the partition begins with the text and is erased behind it.
bool Holds(const FakeMtd &flash, const std::string &text)
{
    return std::string{flash.bytes.begin(), flash.bytes.end()}.starts_with(text + "\xff");
}

} // namespace

TEST_F(Installer, InstallsIntoANewEtcWithoutAnyFile)
{
    const PackageBuilder package;
    for (const bool carries : {true, false}) {
        FakeBoard other;
        EXPECT_EQ(Install(other, package.Build(), carries ? 0 : UPGRADE_FLAG_FACTORY_DEFAULT), 0);
        EXPECT_EQ(other.transcript(), kVersionChecked + (carries ? kSaving : "") + kUnmounting +
                                          kWritingAndMounting + (carries ? kRestoring : ""));
        EXPECT_TRUE(Holds(other.mtd["/dev/mtd/1"], package.kernel));
        EXPECT_TRUE(Holds(other.mtd["/dev/mtd/2"], package.second));
        EXPECT_TRUE(Holds(other.mtd["/dev/mtd/3"], package.etc));
    }
}

TEST_F(Installer, CarriesTheSettingsAcrossOrNot)
{
    // A program that is there; a file of the old /etc, the same of the new one, and in the end.
    const std::tuple<const char *, const char *, const char *, const char *, const char *> cases[] =
        {
            {"", "/etc/network/network.conf", "old", "new", "old"},
            {"", "/etc/network/wireless.conf", "old", "new", "old"},
            {"", "/etc/system.conf", "old", "new", "old"},
            {"", "/etc/serverinfo.conf", "old", "new", "old"},
            {"", "/etc/cam_model.conf", "old", "new", "old"},
            {"", "/etc/tcp_server.conf", "server_port=7\n", "server_port=1\n", "server_port=7\n"},
            {"", "/etc/tcp_server.conf", "", "", "server_port=1852\n"}, // defaults without a file
            {"", "/etc/tcp_server.conf", "other=5\nlast=77\n", "", "server_port=77\n"},
            {"", "/etc/stream.conf", "stream_3_port=74\nstream_1_port=72\nstream_2_port=73\n",
             "stream_1_port=1\nother=2\n",
             "stream_1_port=72\nother=2\nstream_2_port=73\nstream_3_port=74\n"},
            {"", "/etc/stream.conf", "", "",
             "stream_1_port=1852\nstream_2_port=1853\nstream_3_port=1854\n"},
            {"", "/etc/videodecoder.conf", "[video]\nvideo_type=2\n", "", "video_type=2\n"},
            {"", "/etc/videodecoder.conf", "", "", "video_type=0\n"},
            {"", "/etc/lighttpd/lighttpd.conf", "server.port = 81\n", "", "server.port=81\n"},
            {"", "/etc/lighttpd/lighttpd.conf", "", "", "server.port=80\n"},
            // The port of the web server that is there, lighttpd by default.
            {"", "/etc/web.conf", "port=81\n", "port=80\n", "port=80\n"},
            {"/bin/webs", "/etc/web.conf", "port=81\n", "port=80\n", "port=81\n"},
            {"/bin/webs", "/etc/lighttpd/lighttpd.conf", "server.port=81\n", "new", "new"},
        };
    for (const auto &[program, path, before, shipped, after] : cases) {
        for (const uint32_t flags : {0U, UPGRADE_FLAG_FACTORY_DEFAULT + 0U}) {
            FakeBoard other;
            WriteIfAny(other, path, before);
            WriteIfAny(other, program, *program != '\0' ? "program" : "");
            other.new_etc[path] = shipped;
            EXPECT_EQ(Install(other, PackageBuilder{}.Build(), flags), 0);
            EXPECT_EQ(other.Read(path), flags == 0 ? after : shipped) << path;
        }
    }
}

TEST_F(Installer, InstallsTheLongHeaderAndAnyThirdRegion)
{
    board.Write("/usr/upgrade", "MODEL=0815\nVERSION=3\n");
    const PackageBuilder package{.version = 3, .etc = "no file system"};
    EXPECT_EQ(Install(board, package.Build(), UPGRADE_FLAG_VERBOSE), 0);
    EXPECT_EQ(
        board.transcript({"syslog alert CHECK", "syslog alert [CFlash_N", "out CF", "sh /bin/m"}),
        R"(
syslog alert CHECK VERSION : 3 vs 3\n
syslog alert [CFlash_NWrite] offset : 64, size : 1064
out CFlash_TEVWrite : flash1 complete
syslog alert [CFlash_NWrite] offset : 1128, size : 13
out CFlash_TEVWrite : flash2 complete
syslog alert [CFlash_NWrite] offset : 1141, size : 14
out CFlash_TEVWrite : flash3 complete
sh /bin/mount -t jffs2 /dev/mtdblock/3 /etc
)");
    EXPECT_TRUE(Holds(board.mtd["/dev/mtd/3"], "no file system"));
}

TEST_F(Installer, AsksForTheMarkerOnlyWhenTold)
{
    // The texts of the two files, "" for none, the package's marker, the flags and the words.
    const std::tuple<std::string, std::string, std::string, uint32_t, std::string> cases[] = {
        {"", "", "3510", 1, "30313533 vs 30313533"},
        {"", "", "ABCD", 1, "44434241 vs 30313533"},
        {"", "", "\xff\0\1\2"s, 0, ""},
        {"MARKER=WXYZ\nVERSION=1\n", "", "WXYZ", 1, "5a595857 vs 5a595857"},
        {"MARKER=WXYZ\nVERSION=1\n", "MARKER=ABCD\n", "ABCD", 1, "44434241 vs 44434241"},
        {"MARKER=WXYZ\nVERSION=1\n", "MARKER=ABCD\n", "WXYZ", 1, "5a595857 vs 44434241"},
        {"", "MARKER=ABCDEFG\n", "ABCD", 1, "44434241 vs 44434241"},
        {"", "MARKER=AB\n", "AB\0\0"s, 1, "00004241 vs 00004241"},
        {"", "OTHER=QRST\n", "QRST", 1, "54535251 vs 54535251"},
    };
    for (const auto &[upgrade, oem_marker, marker, flags, words] : cases) {
        FakeBoard other;
        WriteIfAny(other, "/usr/upgrade", upgrade);
        WriteIfAny(other, "/etc/oem_marker.conf", oem_marker);
        const bool accepted = words.empty() || words.substr(0, 8) == words.substr(12);
        EXPECT_EQ(Install(other, PackageBuilder{marker}.Build(), flags), accepted ? 0 : -1);
        EXPECT_EQ(
            other.transcript({"syslog alert CHECK M", "syslog alert M"}),
            (words.empty() ? "\n" : "\nsyslog alert CHECK MAGIC_NUMBER : " + words + "\\n\n") +
                (accepted ? "" : "syslog alert MAGIC_NUMBER is not match 1 : " + words + "\\n\n"));
    }
}

TEST_F(Installer, StopsAtACheckThatFails)
{
    const auto versions = [](const std::string &words, bool match) {
        return "\nsyslog alert CHECK VERSION : " + words + "\\n\n" +
               (match ? "" : "syslog alert VERSION is not match 1 : " + words + "\\n\n");
    };
    const std::string unmounted = kVersionChecked + kSaving + kUnmounting;
    using Spoil = std::function<void(FakeBoard &, std::string &)>;
    const std::tuple<std::string, Spoil, std::string> cases[] = {
        {"no package", [](auto &, auto &package) { package.clear(); }, "\n"},
        {"7 bytes", [](auto &, auto &package) { package.resize(7); }, "\n"},
        {"19 bytes", [](auto &, auto &package) { package.resize(19); }, kVersionChecked},
        {"63 bytes of the long header",
         [](auto &b, auto &package) {
             b.Write("/usr/upgrade", "VERSION=3\n");
             package = PackageBuilder{.version = 3}.Build().substr(0, 63);
         },
         versions("3 vs 3", true)},
        {"another version", [](auto &, auto &package) { package[4] = 3; },
         versions("3 vs 1", false)},
        {"key missing", [](auto &b, auto &) { b.Write("/usr/upgrade", "MARKER=7\n"); },
         versions("1 vs 7", false)},
        {"unknown layout",
         [](auto &b, auto &package) {
             b.Write("/usr/upgrade", "VERSION=2\n");
             package[4] = 2;
         },
         versions("2 vs 2", true)},
        {"a file of /etc in use", [](auto &b, auto &) { b.Fail("umount", EIO); },
         kVersionChecked + kSaving + ReleasingEtc() +
             "out [ERROR] /etc : umount [CFlash_TEVWrite], errno : 5, Input/output error\n"},
        {"one byte longer", [](auto &, auto &package) { package += "x"; },
         unmounted + "syslog alert Firmware image size : 1111 vs 1112\\n\n" +
             "out [ERROR] CFlash_TEVWrite : Firmware image size : 1111 vs 1112\n"},
        {"kernel", [](auto &, auto &package) { package[20 + 64] ^= 1; },
         unmounted + "syslog alert [CFlash_CheckImage] filencrc32 error\\n\n" +
             "syslog alert flash1 is not correct\\n\nout [ERROR] CFlash_TEVWrite : chech Image\n"},
        {"file system", [](auto &, auto &package) { package[1097] = 'x'; },
         unmounted + "syslog alert flash2 is not correct\\n\n" +
             "out [ERROR] CFlash_TEVWrite : check JFFS2\n"},
    };
    for (const auto &[name, spoil, transcript] : cases) {
        FakeBoard other;
        std::string package = PackageBuilder{}.Build();
        spoil(other, package);
        EXPECT_EQ(Install(other, package), -1) << name;
        EXPECT_EQ(other.transcript(), transcript) << name;
    }
}

TEST_F(Installer, RefusesDescriptorZero)
{
    const int standard_input = dup(0);
    close(0);
    EXPECT_EQ(Install(board, PackageBuilder{}.Build()), -1);
    EXPECT_EQ(dup2(standard_input, 0), 0);
    close(standard_input);
    EXPECT_EQ(board.transcript(), "\n");
}
