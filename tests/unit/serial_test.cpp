// The serial ports: loopback tests, camera board.
#include <fcntl.h>

#include "hwtest/camera_board.h"
#include "hwtest/serial_loopback.h"
#include "hwtest/serial_port.h"
#include "tests/fake_board.h"

namespace
{

using Pieces = FakeSerialLine::Pieces;

class Serial : public BoardTest
{
protected:
    Serial() { board.devices["/dev/ttyAMA1"] = board.devices["/dev/ttyAMA2"] = &line; }

    FakeSerialLine line;
};

const std::string kOpening = "get 1:01 4:01 8:02 9:10 12:08 17:03\nflush 0\n"
                             "set 0:04 8:bd 9:08 23:01\n";
const std::string kClosing = "set 1:01 4:01 8:02 9:10 12:08 17:03\n";

} // namespace

TEST_F(Serial, Rs485DrivesRtsAndWaitsForItsFrame)
{
    EXPECT_EQ(board.Start({"test_rs485", "-v"}), 0);
    EXPECT_EQ(board.transcript(), "\n" + kOpening + R"(get modem lines
set modem lines 2
get modem lines
set modem lines 6
write a5 a5 a5 a5 a5 a5 a5 a5 a5 a5
get line status x3
out PATTERN [0xA5] => \c
select 1 x300
out RECV [       0]:  : failed
)" + kClosing + "out failed\n");
}

TEST_F(Serial, Rs232DrainsItsFrame)
{
    line.input = {"left from before"};
    line.send_time = 1'000'000; // counts against the 3 seconds
    line.answer = [](const std::string &frame) {
        return frame[0] == '\xA5' ? Pieces{frame.substr(1), frame} : Pieces{};
    };
    board.Fail("read", EAGAIN, 1);
    board.Fail("read", 0, 2);
    board.Fail("select", EINTR, 2);
    EXPECT_EQ(board.Start({"test_rs232", "-v"}), 0);
    EXPECT_EQ(board.transcript(), "\nout\n" + kOpening + R"(write a5 a5 a5 a5 a5 a5 a5 a5 a5 a5
drain
out PATTERN [0xA5] => \c
select 1 x4
read 10: 9 bytes
select 1
read 10: 10 bytes
out RECV [      19]: A5 A5 A5 A5 A5 A5 A5 A5 A5 A5 A5 A5 A5 A5 A5 A5 A5 A5 A5  : successful
write 5a 5a 5a 5a 5a 5a 5a 5a 5a 5a
drain
out PATTERN [0x5A] => \c
select 1 x200
out RECV [       0]:  : failed
)" + kClosing + "out failed\n");
}

TEST_F(Serial, PassesTenCyclesOfFourPatterns)
{
    std::string cycles;
    for (int i = 0; i < 10; ++i) {
        cycles += {'\xA5', '\x5A', '\xFF', '\0'};
    }
    // The byte of the last frame that is wrong; the eleventh comes too late to count.
    for (const size_t wrong : {0, 9, 10}) {
        for (const char *applet : {"test_rs485", "test_rs232"}) {
            std::string sent;
            line.answer = [&](const std::string &frame) {
                sent += frame[0];
                std::string echo = frame + frame[0];
                echo[wrong] = sent.size() == 40 ? '!' : echo[wrong];
                return Pieces{echo.substr(0, 4), echo.substr(4)};
            };
            EXPECT_EQ(board.Start({applet, "-V", "-v"}), 0);
            EXPECT_EQ(Hex(sent), Hex(cycles));
        }
    }
    EXPECT_EQ(board.transcript({"out"}), "\nout failed\nout\nout failed\nout failed\nout\n"
                                         "out failed\nout successful\nout\nout successful\n");
}

TEST_F(Serial, ASilentPortPassesThePatternOfZeros)
{
    for (const auto exchange : {CSERIAL_Rs485Exchange, CSERIAL_Rs232Exchange}) {
        board.Run([exchange] {
            const Fd fd{open("/dev/ttyAMA1", O_RDWR | O_NOCTTY | O_NONBLOCK)};
            EXPECT_EQ(exchange(fd.get(), 0x00), 0);
            EXPECT_EQ(exchange(fd.get(), 0x01), -1);
            return 0;
        });
    }
}

TEST_F(Serial, SaysThatAPortDoesNotOpen)
{
    board.devices.clear();
    for (const char *name : {"test_rs485", "test_rs232", "get_cb_cam_info"}) {
        EXPECT_EQ(board.Start({name, "-v"}), FakeBoard::kExited + 255);
    }
    EXPECT_EQ(board.transcript(), R"(
syslog alert /dev/ttyAMA1 device open fail !!!
err /dev/ttyAMA1 device open fail !!!
out
syslog alert /dev/ttyAMA2 device open fail !!!
err /dev/ttyAMA2 device open fail !!!
out
syslog alert /dev/ttyAMA2 device open fail !!!
err /dev/ttyAMA2 device open fail !!!
)");
}

TEST_F(Serial, GoesOnWithADriverThatRefuses)
{
    line.answer = [](const std::string &frame) { return Pieces{frame}; };
    for (const char *function : {"tcgetattr", "tcflush", "tcsetattr", "tcdrain"}) {
        board.Fail(function, ENOTTY);
    }
    for (int nth = 1; nth <= 200; ++nth) { // the line status too: it would never be reported
        board.Fail("ioctl", ENOTTY, nth);
    }
    board.Start({"test_rs485"});
    board.Start({"test_rs232"});
    EXPECT_EQ(board.transcript({"out"}), "\nout successful\nout\nout successful\n");
}

TEST_F(Serial, AsksTheCameraBoard)
{
    line.send_time = 2'000'000; // counts against the 3 seconds
    line.answer = [](const std::string &frame) {
        return frame[1] == '\xE0'   ? Pieces{"abcdef\x46hij"}
               : frame[1] == '\x5C' ? Pieces{"klmnop"}
                                    : Pieces{};
    };
    EXPECT_EQ(board.Start({"get_cb_cam_info", "-v"}), 0);
    // The second reply is too short, the third does not come: the first one shows through.
    EXPECT_EQ(board.transcript(), "\nout\n" + kOpening + R"(write ff e0 01 00 00 00 00 00 00 e0
drain
select 1
read 256: 10 bytes
out RECV [      10]: 61 62 63 64 65 66 46 68 69 6A 
write ff 5c 01 00 00 00 00 00 00 5c
drain
select 1
read 256: 6 bytes
select 1 x100
out RECV [       6]: 6B 6C 6D 6E 6F 70 
write ff e3 01 00 00 00 00 00 00 e3
drain
select 1 x100
out RECV [       0]: 
out VERSION=46
out MODEL=2M Sony
out RESOLUTION=720p
)" + kClosing);
}

TEST_F(Serial, KnowsTheSensorsOfTheCameraBoard)
{
    const std::tuple<char, std::string, std::string, std::string> cases[] = {
        {0x26, "2M Panasonic", "1080p", "720p"},
        {0x36, "2M OmniVision", "1080p", "720p"},
        {0x46, "2M Sony", "1080p", "720p"},
        {0x16, "1.3M Panasonic", "720p", "1280x1024"},
        {0x27, "Unknown 27", "", ""},
        {'\xF6', "Unknown F6", "", ""},
    };
    std::string expected = "\n";
    for (const auto &[code, model, resolution, other_resolution] : cases) {
        for (const char flag : {'\0', '\x80'}) {
            line.answer = [&, code = code](const std::string &frame) {
                const char byte = frame[1] == '\xE0' ? code : frame[1] == '\x5C' ? flag : '\x12';
                // Noise behind the reply, as much as can come at once.
                return Pieces{std::string{"\xFFnoise"} + byte + "..", std::string(256, '\xAA')};
            };
            board.Start({"get_cb_cam_info", "-V"});
            expected += "out\nout VERSION=12\nout MODEL=" + model +
                        "\nout RESOLUTION=" + (flag == 0 ? resolution : other_resolution) + "\n";
        }
    }
    line.answer = nullptr; // no camera board: three times 3 seconds
    const int64_t start = board.clock;
    board.Start({"get_cb_cam_info"});
    EXPECT_EQ(board.clock - start, 9'000'000);
    EXPECT_EQ(board.transcript({"out"}),
              expected + "out\nout VERSION=00\nout MODEL=Unknown 00\nout RESOLUTION=\n");
}

TEST_F(Serial, SendsAndReadsForTheCamera)
{
    line.input = {"abc"};
    board.Fail("write", EIO, 2);
    board.Run([] {
        const std::array<uint8_t, 7> parameters = {1, 2, 3, 4, 5, 6, 0xF0};
        std::array<uint8_t, 4> buffer{};
        const Fd fd{open("/dev/ttyAMA2", O_RDWR | O_NOCTTY | O_NONBLOCK)};
        EXPECT_EQ(CCAM_SendCommand(fd.get(), 0x81, parameters), 10);
        EXPECT_EQ(CCAM_SendCommand(fd.get(), 0x81, parameters), -1);
        EXPECT_EQ(CCAM_SendCommand(-1, 0x81, parameters), -1);
        EXPECT_EQ(CCAM_ReadTimeout(fd.get(), buffer.data(), 2, 0, 1), 2);
        EXPECT_EQ(CCAM_ReadTimeout(fd.get(), buffer.data(), 4, 0, 1), 1);
        EXPECT_EQ(CCAM_ReadTimeout(fd.get(), buffer.data(), 4, 2, 500'000), -1);
        EXPECT_EQ(CCAM_ReadTimeout(fd.get(), nullptr, 4, 0, 1), -1);
        EXPECT_EQ(CCAM_ReadTimeout(-1, buffer.data(), 4, 0, 1), -1);
        return 0;
    });
    EXPECT_EQ(board.transcript(), R"(
write ff 81 01 02 03 04 05 06 f0 85
drain x2
select 1
read 2: 2 bytes
select 1
read 4: 1 bytes
select 2500000
)");
}
