#include "upgrade/watchdog.h"

#include "tests/fake_board.h"

using Watchdog = BoardTest;

namespace
{

/// Uses a watchdog in all ways. Returns the time-out that it ended with.
int UseWatchdog()
{
    CWDT watchdog;
    CWDT_Init(&watchdog);
    const bool open = watchdog.fd >= 0;
    EXPECT_EQ(watchdog.keep_alive(&watchdog), open ? 1 : -1);
    const int taken = watchdog.set_timeout(&watchdog, 60);
    EXPECT_EQ(taken, open ? watchdog.timeout : -1);
    watchdog.close(&watchdog);
    EXPECT_EQ(watchdog.disable(&watchdog), -1);
    watchdog.close(&watchdog);
    return watchdog.timeout;
}

} // namespace

TEST_F(Watchdog, IsArmedFedAndDisarmed)
{
    board.watchdog.timeout = 25; // the driver's own idea
    EXPECT_EQ(board.Run(UseWatchdog), 25);
    EXPECT_EQ(board.transcript(), R"(
watchdog set 30
out The timeout was set to 25 seconds
watchdog write 00
watchdog set 60
out The timeout was set to 25 seconds
watchdog write 56
out set disable write watchdog : 1
out close watchdog
)");
}

TEST_F(Watchdog, DoesNothingWithoutItsDevice)
{
    board.devices.erase("/dev/misc/watchdog");
    EXPECT_EQ(board.Run(UseWatchdog), 60);
    EXPECT_EQ(board.transcript(), "\nout watchdog open error !\n");
}

TEST_F(Watchdog, GoesOnWithADriverThatRefuses)
{
    for (const int nth : {1, 2, 3, 4}) {
        board.Fail("ioctl", ENOTTY, nth);
    }
    board.Fail("write", EIO, 2);
    EXPECT_EQ(board.Run(UseWatchdog), 60);
    EXPECT_EQ(board.transcript(), R"(
out The timeout was set to 30 seconds
watchdog write 00
out The timeout was set to 60 seconds
out set disable write watchdog : -1
out close watchdog
)");
}
