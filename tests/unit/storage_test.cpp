#include "tests/fake_board.h"

TEST(Storage, IsMountedReadAndUnmounted)
{
    const std::tuple<std::string, std::string, std::string> cases[] = {
        {"test_sdcard", "/mnt/sd", "/dev/mmcblk0p1"},
        {"test_usb", "/mnt/usb", "/dev/sda1"},
    };
    for (const auto &[applet, mount_point, device] : cases) {
        FakeBoard board;
        board.Write(mount_point + "/test.txt", "hello\ntest device 01\nnot read\n");
        EXPECT_EQ(board.Start({applet, "-v"}), 0);
        EXPECT_EQ(board.transcript(), "\nmount " + device + " " + mount_point +
                                          "/ vfat flags 0\nout READ : \nout hello\n"
                                          "out test device 01\numount " +
                                          mount_point + "\nout successful\n");
        EXPECT_EQ(board.Read(mount_point + "/test.txt"), "(none)"); // the file was closed before
    }
}

TEST(Storage, HoldsTheMarkerAtTheBeginningOfALine)
{
    const std::pair<std::string, bool> cases[] = {
        {"test device", true},
        {"test devices\n", true},
        {"hello\ntest device\n", true},
        {"test devic\n", false},
        {"test devicE 01\n", false},
        {"a test device\n", false},
        {"", false},
        // A long line is read in pieces of 255 characters.
        {std::string(255, 'x') + "test device\n", true},
        {std::string(254, 'x') + "test device\n", false},
        {std::string(256, 'x') + "test device\n", false},
        {std::string(510, 'x') + "test device\n", true},
    };
    for (const auto &[text, found] : cases) {
        FakeBoard board;
        board.Write("/mnt/sd/test.txt", text);
        board.Start({"test_sdcard"});
        EXPECT_EQ(board.transcript({"out"}), found ? "\nout successful\n" : "\nout failed\n")
            << text;
    }
}

TEST(Storage, IsMissing)
{
    const std::string kErrno = "out mount, errno : 6, No such device or address\n";
    const std::string kNoFile = "out can't find file [/mnt/usb/test.txt]\n";
    // The call that fails, what is printed with "-v", and what always.
    const std::tuple<std::string, std::string, std::string> cases[] = {
        {"mount", kErrno + "out READ : \nout test device\n",
         "out successful\n"}, // read all the same
        {"fopen", kNoFile, "out failed\n"},
        {"", kErrno + kNoFile, "out failed\n"},
    };
    for (const auto &[function, verbose, verdict] : cases) {
        for (const std::string option : {"-v", "-V", "-vv"}) {
            FakeBoard board;
            board.Write("/mnt/usb/test.txt", "test device\n");
            board.Fail(function, ENXIO, 1);
            board.Fail(function, ENXIO, 2);
            EXPECT_EQ(board.Start({"test_usb", option, "-v"}), 0);
            EXPECT_EQ(board.transcript({"out"}), "\n" + (option == "-v" ? verbose : "") + verdict);
            EXPECT_EQ(board.transcript({"umount"}), "\numount /mnt/usb\n");
        }
    }
}
