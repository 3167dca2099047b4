#include "tests/fake_board.h"
#include "tests/unit/package_builder.h"

namespace
{

class Upgrade : public BoardTest
{
protected:
    Upgrade()
    {
        board.processes_obey = false; // so as to be seen each time
        board.AddProcesses(30, {"confd", "webs", "lighttpd", "AVServer", "ucftpd", "encpd",
                                "onvif_discovery", "onvif_server", "genetec_discovery",
                                "RTSPServer", "other"});
    }
};

const std::string kStarting =
    "\nsyslog info Upgrade Daemon v1.0.0.1(2012.09.25-00:50+0000) start\n";

const std::string kRebooting = R"(syslog info [CUTIL_KillProcAll]\n
syslog info [CUTIL_KillProcAll] - list open err[/etc/killList]\n
syslog info [CUTIL_KillProcAll]\n
syslog info [CUTIL_KillProcAll] - list open err[/etc/termList]\n
)" + kReboot;

} // namespace

TEST_F(Upgrade, IsQuietWithFewerThanTwoArguments)
{
    board.Write("/bin/xkill", "");
    EXPECT_EQ(board.Start({"upgrade", "-v"}), FakeBoard::kRebooted);
    EXPECT_EQ(board.transcript(), kStarting + R"(sleep 2
kill 31 9
kill 32 9
kill 30 9
syslog alert Upgrade fail.
)" + kRebooting);
}

TEST_F(Upgrade, TellsTheSystemManagerAndStopsTheServicesThroughXkill)
{
    board.Write("/bin/xkill", "");
    EXPECT_EQ(board.Start({"upgrade", "/tmp/none", "other"}), FakeBoard::kRebooted);
    EXPECT_EQ(board.transcript(), kStarting + R"(send 127.0.0.1:4100 12 bytes
sh /bin/xkill /bin/confd
sh /bin/xkill /bin/webs
sh /bin/xkill /bin/lighttpd
sh /bin/xkill /bin/AVServer
sh /bin/xkill /bin/ucftpd
sh /bin/xkill /bin/encpd
sh /bin/xkill /bin/onvif_discovery
sh /bin/xkill /bin/onvif_server
sh /bin/xkill /bin/genetec_discovery
sh /bin/xkill /bin/RTSPServer
sh /bin/xkill SIGKILL /bin/confd
sh /bin/xkill SIGKILL /bin/AVServer
sh /bin/xkill SIGKILL /bin/genetec_discovery
syslog alert Upgrade fail.
)" + kRebooting);
    EXPECT_EQ(board.datagrams.front(), (std::string{"SYSP\0\0\0\0UPGR", 12}));
}

TEST_F(Upgrade, StopsTheServicesItselfWithoutXkill)
{
    board.Fail("socket", EMFILE);
    EXPECT_EQ(board.Start({"upgrade", "/tmp/none", "-v"}), FakeBoard::kRebooted);
    EXPECT_EQ(
        board.transcript(),
        kStarting +
            "out [TEV_OpenLocalUDPCSocket] local socket error. exit : 24, Too many open files\n"
            "kill 30 15\nkill 31 15\nkill 32 15\nkill 33 15\nkill 34 15\nkill 35 15\nkill 36 15\n"
            "kill 37 15\nkill 38 15\nkill 39 15\nkill 30 9\nkill 33 9\nkill 38 9\n"
            "syslog alert Upgrade fail.\nout Upgrade fail.\nsleep 2\n" +
            kRebooting);
}

TEST(UpgradeOptions, ReachTheInstaller)
{
    const std::string kFlash = "\nout CFlash_TEVWrite : flash1 complete\n"
                               "out CFlash_TEVWrite : flash2 complete\n"
                               "out CFlash_TEVWrite : flash3 complete\n"
                               "out Upgrade complete.\n";
    // Whether they make it verbose, carry the settings over, pause before the reboot.
    const std::tuple<std::vector<std::string>, bool, bool, bool> cases[] = {
        {{"upgrade"}, false, true, false},
        {{"upgrade", "/tmp/ignored"}, false, true, false},
        {{"upgrade", "/tmp/flash3", "other"}, false, true, false},
        {{"upgrade", "/tmp/flash3", "-v"}, true, true, true},
        {{"upgrade", "/tmp/flash3", "-f", "-v", "other"}, true, false, true},
        {{"upgrade", "/tmp/flash3", "-vf", "-V", "-f"}, false, false, true},
        {{"upgrade", "-v", "-f"}, false, false, true}, // a package of that name
    };
    for (const auto &[words, verbose, carries, pauses] : cases) {
        SCOPED_TRACE(testing::PrintToString(words));
        FakeBoard board;
        board.Write("/tmp/flash3", PackageBuilder{"any "}.Build()); // the marker is not compared
        EXPECT_EQ(board.Start(words), FakeBoard::kRebooted);
        EXPECT_EQ(board.transcript({"syslog alert Up"}),
                  words.back() == "-f" && words.size() == 3 ? "\nsyslog alert Upgrade fail.\n"
                                                            : "\nsyslog alert Upgrade complete.\n");
        EXPECT_EQ(board.transcript({"out Up", "out CF"}), verbose ? kFlash : "\n");
        EXPECT_EQ(board.transcript({"sh /bin/cp"}) != "\n", carries);
        EXPECT_EQ(board.transcript({"sleep 2"}) != "\n", pauses || words.size() < 3);
    }
}

TEST_F(Upgrade, InstallsWithoutStandardInput)
{
    board.Write("/tmp/flash3", PackageBuilder{}.Build());
    const int input = dup(0);
    close(0); // so the socket is descriptor 0, which nobody uses nor frees
    EXPECT_EQ(board.Start({"upgrade", "/tmp/flash3", "-f"}), FakeBoard::kRebooted);
    EXPECT_EQ(dup2(input, 0), 0);
    close(input);
    EXPECT_EQ(board.transcript({"send", "syslog alert Up"}), "\nsyslog alert Upgrade complete.\n");
}
