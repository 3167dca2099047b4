#include "util/reboot.h"

#include "tests/fake_board.h"

namespace
{

int Reboot()
{
    CUTIL_Reboot();
}

int RebootFixedList()
{
    CUTIL_RebootFixedList();
}

} // namespace

TEST(Reboot, KillsTerminatesAndLetsGo)
{
    FakeBoard board;
    board.Write("/etc/killList", "/bin/foo\n");
    board.Write("/etc/termList", "/bin/bar\n");
    board.AddProcess(30, "/bin/bar");
    board.AddProcess(31, "/bin/foo");
    EXPECT_EQ(board.Run(Reboot), FakeBoard::kRebooted);
    EXPECT_EQ(board.transcript(), R"(
syslog info [CUTIL_KillProcAll]\n
syslog info [CUTIL_KillProcAll] - kill[/bin/foo], 31\n
kill 31 9
syslog info [CUTIL_KillProcAll]\n
syslog info [CUTIL_KillProcAll] - kill[/bin/bar], 30\n
kill 30 15
)" + kReboot);
}

TEST(Reboot, KillsAFixedSetAndNeedsNoList)
{
    FakeBoard board;
    board.AddProcesses(30, {"sh", "TEVNetManager", "snmpd", "islmanager", "dhcpd", "other"});
    EXPECT_EQ(board.Run(RebootFixedList), FakeBoard::kRebooted);
    EXPECT_EQ(board.transcript(), R"(
kill 34 9
kill 33 9
kill 32 9
kill 31 9
kill 30 9
syslog info [CUTIL_KillProcAll]\n
syslog info [CUTIL_KillProcAll] - list open err[/etc/termList]\n
)" + kReboot);
}
