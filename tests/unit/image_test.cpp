// Checks of the images in a package: CRC-32, kernel image, file system.
#include "flash/crc32.h"
#include "flash/jffs2.h"
#include "flash/uimage.h"
#include "tests/fake_board.h"
#include "tests/unit/package_builder.h"
#include "util/file.h"

using Image = BoardTest;

namespace
{

uint32_t Crc32(uint32_t start, const std::string &bytes)
{
    return CFlash_Crc32(start, reinterpret_cast<const uint8_t *>(bytes.data()), bytes.size());
}

std::string With(size_t offset, const std::string &bytes)
{
    return ImageBuilder{}.Build().replace(offset, bytes.size(), bytes);
}

} // namespace

TEST_F(Image, Crc32IsZlibs)
{
    EXPECT_EQ(Crc32(0, "123456789"), 0xCBF43926);
    EXPECT_EQ(Crc32(Crc32(0, "1234"), "56789"), 0xCBF43926);
    EXPECT_EQ(Crc32(0, "The quick brown fox jumps over the lazy dog"), 0x414FA339);
    EXPECT_EQ(Crc32(7, ""), 7U);
    EXPECT_EQ(CFlash_Crc32(7, nullptr, 4), 0U);
}

TEST_F(Image, Crc32OfAStreamEndsWithIt)
{
    const std::string file = std::string(1000, 'x') + "123456789" + std::string(600, 'y');
    board.Write("/tmp/a", file);
    const std::tuple<long, int64_t, uint32_t, long> cases[] = {
        {1000, 9, 0xCBF43926, 1009},
        {0, 1009, Crc32(0, file.substr(0, 1009)), 1009},
        {1009, 601, Crc32(0, file.substr(1009)), 1609},
        {5, 0, 0, 5},
        {5, -1, 0, 5},
    };
    for (const auto &row : cases) {
        board.Run([&row] {
            const auto &[offset, length, crc, end] = row;
            const File stream{"/tmp/a", "r"};
            std::fseek(stream.get(), offset, SEEK_SET);
            EXPECT_EQ(CFlash_Crc32Stream(0, stream.get(), length), crc) << offset << " " << length;
            EXPECT_EQ(std::ftell(stream.get()), end);
            return 0;
        });
    }
}

TEST_F(Image, IsAKernelForThisBoard)
{
    std::string unzeroed = With(4, "1234"); // a CRC over a header with something in the CRC's place
    unzeroed.replace(4, 4, BigEndian(Crc32(0, unzeroed.substr(0, 64))));
    const std::tuple<std::string, std::string> cases[] = {
        // with the log line, "" when accepted
        {ImageBuilder{}.Build(), ""},
        {ImageBuilder{"", 2, 1, 0}.Build(), ""},
        {ImageBuilder{"data", 2, 4, 1}.Build(), ""},
        {Sealed(With(28, "\xff")), ""},
        {With(0, "\x56\x19\x05\x27"), "Bad Magic Number : 1444480295\\n"},
        {With(0, "\xff"), "Bad Magic Number : -16443050\\n"},
        {With(40, "x"), "crc32 error\\n"},
        {unzeroed, "crc32 error\\n"},
        {With(1063, "x"), "filencrc32 error\\n"},
        {With(0, "").substr(0, 1063), "filencrc32 error\\n"},
        {ImageBuilder{"data", 3}.Build(), "Unsupported Architecture\\n"},
        {ImageBuilder{"data", 2, 0}.Build(), "Wrong Image Type\\n"},
        {ImageBuilder{"data", 2, 3}.Build(), "Wrong Image Type\\n"},
        {ImageBuilder{"data", 2, 5}.Build(), "Wrong Image Type\\n"},
        {ImageBuilder{"data", 2, 2, 2}.Build(), "Unimplemented compression type 2\\n"},
        {ImageBuilder{"data", 2, 2, '\xff'}.Build(), "Unimplemented compression type 255\\n"},
        // Where several things are wrong, the order of the checks decides.
        {ImageBuilder{"data", 3, 3, 3}.Build().replace(64, 1, "x"), "filencrc32 error\\n"},
        {ImageBuilder{"data", 3, 3, 3}.Build(), "Unsupported Architecture\\n"},
        {ImageBuilder{"data", 2, 3, 3}.Build(), "Wrong Image Type\\n"},
    };
    for (const auto &[image, log] : cases) {
        FakeBoard other;
        other.Write("/tmp/a", "offset" + image);
        EXPECT_EQ(other.Run(CFlash_CheckImage, "/tmp/a", 6), log.empty() ? 0 : -1);
        const std::string line = "\nsyslog alert [CFlash_CheckImage] " + log + "\n";
        EXPECT_EQ(other.transcript(), log.empty() ? "\n" : line);
    }
}

TEST_F(Image, IsRefusedSilentlyWithoutAHeader)
{
    board.Write("/tmp/a", ImageBuilder{}.Build().substr(0, 63));
    EXPECT_EQ(board.Run(CFlash_CheckImage, "/tmp/none", 0), -1);
    EXPECT_EQ(board.Run(CFlash_CheckImage, "/tmp/a", -1), -1);
    EXPECT_EQ(board.Run(CFlash_CheckImage, "/tmp/a", 0), -1);
    EXPECT_EQ(board.transcript(), "\n");
}

TEST_F(Image, IsAFileSystemToTheEndOfTheFile)
{
    const std::string block = "\x85\x19" + std::string(65534, '.');
    const std::tuple<std::string, int32_t, int> cases[] = {
        {block + block, 0, 0},
        {"x" + block, 1, 0},
        {"x" + block, 0, -1},
        {"\x85x" + block, 0, -1},
        {"\x19\x85" + block, 0, -1},
        {block + "\x85\x19 12 bytes.", 0, 0},
        {block + "?? 12 bytes.", 0, -1},
        {block + "?? 11 bytes", 0, 0}, // too short to be looked at
        {block + block + std::string(12, '?'), 0, -1},
        {block, 65536, 0},
        {block, 70000, 0},
    };
    for (const auto &[image, offset, expected] : cases) {
        board.Write("/tmp/a", image);
        EXPECT_EQ(board.Run(CFlash_CheckJffs2, "/tmp/a", offset), expected) << image.size();
    }
    EXPECT_EQ(board.Run(CFlash_CheckJffs2, "/tmp/none", 0), -1);
    EXPECT_EQ(board.transcript(), "\n");
}
