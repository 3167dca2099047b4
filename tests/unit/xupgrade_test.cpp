#include <signal.h>

#include "tests/fake_board.h"
#include "tests/unit/package_builder.h"

namespace
{

const std::string kHelp =
    "\nout 'xupgrade' usage : \n"
    "out         -f                      When the update is complete, factorydefault.\n"
    "out         -b                      When the update is complete, system reboot.\n"
    "out         -i                      Ignore the 'OEM code' and proceed the update. \n"
    "out         -r <udp_port>           send udp log message.\n"
    "out         -h                      program help page.\n";

} // namespace

TEST(XUpgrade, FeedsTheWatchdogWhileItStopsTheServicesAndInstalls)
{
    FakeBoard board;
    board.may_stay_open = 1; // the watchdog goes on counting, deliberately
    board.processes_obey = false;
    board.AddProcesses(30,
                       {"TEVSysMgr", "encpd", "genetec_discovery", "TEVNetManager", "shd",
                        "AVServer", "AVClient", "RecordDaemon", "RTSPServer", "RTSPClient",
                        "onvif_discovery", "onvif_server", "webs", "lighttpd", "confd", "other"});
    EXPECT_EQ(board.Start({"xupgrade"}), 0); // without a package
    EXPECT_EQ(board.transcript(),
              "\nkill 30 15\nsleep 1\nthread detached\nusleep 100000\nwatchdog set 30\n"
              "out The timeout was set to 30 seconds\nwatchdog write 00\nsleep 1\n"
              "kill 31 9\nkill 32 9\nkill 33 9\nkill 34 9\nkill 35 15\nkill 36 15\nkill 37 15\n"
              "kill 38 15\nkill 39 15\nkill 40 15\nkill 41 15\nkill 42 15\nkill 42 9\nkill 43 9\n"
              "kill 44 9\nsleep 3\nwatchdog write 00\nsleep 1\nwatchdog write 00\nsleep 1\n"
              "watchdog write 00\nsleep 1\nout Upgrade fail.\nusleep 100000 x9\n"
              "watchdog write 00\n");
}

TEST(XUpgrade, TakesItsOptions)
{
    // Whether it upgrades, reboots, compares the marker, carries the settings over.
    const std::tuple<std::vector<std::string>, bool, bool, bool, bool> cases[] = {
        {{"xupgrade"}, true, false, false, true},
        {{"xupgrade", "-f", "-i"}, true, false, true, false},
        {{"xupgrade", "-f"}, true, false, false, false},
        {{"xupgrade", "-i", "other", "-F"}, true, false, true, true},
        {{"xupgrade", "-r", "5000"}, true, false, false, true},
        {{"xupgrade", "-r", "-b"}, true, true, false, true},
        {{"xupgrade", "-b", "-r"}, true, true, false, true},
        {{"xupgrade", "-h"}, false, false, false, false},
        {{"xupgrade", "-b", "-h"}, false, true, false, false},
        {{"xupgrade", "-h", "-b"}, false, false, false, false},
    };
    for (const auto &[words, upgrades, reboots, compares, carries] : cases) {
        SCOPED_TRACE(testing::PrintToString(words));
        FakeBoard board;
        board.may_stay_open = upgrades ? 1 : 0;
        board.Write("/tmp/flash3", PackageBuilder{}.Build());
        for (const char *name : {"tcp_server", "stream", "videodecoder", "lighttpd/lighttpd"}) {
            board.new_etc[std::string{"/etc/"} + name + ".conf"] = "";
        }
        signal(SIGHUP, SIG_DFL);
        EXPECT_EQ(board.Start(words), reboots ? FakeBoard::kRebooted : 0);
        EXPECT_EQ(signal(SIGHUP, SIG_DFL), SIG_IGN); // the console may go at any moment
        EXPECT_EQ(board.transcript({"out "}), upgrades ? "\nout The timeout was set to 30 seconds\n"
                                                         "out Upgrade complete.\n"
                                                       : kHelp);
        EXPECT_EQ(board.transcript({"sh /sbin"}) != "\n", reboots);
        EXPECT_EQ(board.transcript({"syslog alert CHECK M"}) != "\n", compares);
        EXPECT_EQ(board.transcript({"sh /bin/cp"}) != "\n", carries);
        EXPECT_EQ(board.transcript({"watchdog", "kill", "sleep"}) != "\n", upgrades || reboots);
    }
}

TEST(XUpgrade, GoesOnWithoutWatchdogOrThread)
{
    FakeBoard board;
    board.devices.erase("/dev/misc/watchdog");
    board.Start({"xupgrade"});
    board.Fail("pthread_create", EAGAIN);
    board.Start({"xupgrade"});
    EXPECT_EQ(board.transcript({"out", "watchdog"}), R"(
out watchdog open error !
out Upgrade fail.
out [CTHREAD_Start] error, reason(pthread_create failed)
out Upgrade fail.
out [CTHREAD_Stop] error, reason(error)
)");
}
