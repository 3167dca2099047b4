// The package installer: whatever the package and whichever call fails, flash is not touched unless
// all checks pass; and when they pass and nothing fails, each partition holds its region.
//
// Input: the flags, the layout version that the board wants, which CRCs of the kernel image are
// made right (with 4: the size of region 2 too), which call fails ('0' for none); the package.
#include "flash/installer.h"

#include "tests/fuzz/fuzz.h"
#include "tests/fuzz/image_model.h"

namespace
{

/// A package as its header describes it.
struct Regions {
    size_t header = 0; ///< bytes; 0 when there is no sound header
    int64_t size[3] = {};
    int64_t start[3] = {};
    int64_t end = 0; ///< of region 3
};

int32_t Word(const std::string &package, size_t offset)
{
    const std::string bytes = package.substr(offset, 4);
    return static_cast<int32_t>(BigWord({bytes.rbegin(), bytes.rend()}, 0));
}

Regions Measure(const std::string &package, int version)
{
    Regions regions;
    const size_t header = version == 1 ? 20 : 64;
    if (package.size() < header || Word(package, 4) != version || (version != 1 && version != 3)) {
        return regions;
    }
    regions.header = header;
    regions.end = static_cast<int64_t>(header);
    for (size_t i = 0; i < 3; ++i) {
        regions.size[i] = Word(package, (version == 1 ? 8 : 12) + 4 * i);
        regions.start[i] = regions.end;
        regions.end += regions.size[i];
    }
    return regions;
}

/// Makes the header's size of region 2 so that the sum is right.
void RepairSize(std::string &package, int version)
{
    const Regions regions = Measure(package, version);
    const int64_t size = static_cast<int64_t>(package.size()) - (regions.end - regions.size[1]);
    if (regions.header != 0) {
        package.replace(version == 1 ? 12 : 16, 4, LittleEndian(static_cast<uint32_t>(size)));
    }
}

bool PassesAllChecks(const std::string &package, int version, bool check_marker)
{
    const Regions regions = Measure(package, version);
    return regions.header != 0 && !(check_marker && !package.starts_with("3510")) &&
           regions.end == static_cast<int64_t>(package.size()) &&
           LoggedFault(package, regions.start[0]).empty() &&
           (version == 3 || IsFileSystem(package, regions.start[2]));
}

void ExpectInstalled(FakeBoard &board, const std::string &package, const Regions &regions)
{
    for (size_t i = 0; i < 3; ++i) {
        const std::vector<uint8_t> &flash = board.mtd["/dev/mtd/" + std::to_string(i + 1)].bytes;
        const int64_t room = static_cast<int64_t>(flash.size());
        if (regions.size[i] < 0 || regions.size[i] > room || regions.start[i] < 0) {
            continue; // passed over
        }
        std::string expected(flash.size(), '\xff');
        const auto size = static_cast<size_t>(regions.size[i]);
        const std::string region = static_cast<size_t>(regions.start[i]) < package.size()
                                       ? package.substr(static_cast<size_t>(regions.start[i]), size)
                                       : "";
        expected.replace(0, region.size(), region);
        EXPECT_TRUE(
            std::equal(flash.begin(), flash.end(), expected.begin(),
                       [](uint8_t left, char right) { return static_cast<char>(left) == right; }));
    }
}

} // namespace

void Fuzz(const std::string &input)
{
    const auto fields = Fields(input, 2);
    const auto flags = static_cast<uint32_t>(Digit(fields[0], 0)) & 7;
    const int version = Digit(fields[0], 1);
    const int repair = Digit(fields[0], 2);
    const int failing_call = Digit(fields[0], 3);
    std::string package = fields[1];
    if ((repair & 4) != 0) {
        RepairSize(package, version);
    }
    RepairImage(package, version == 1 ? 20 : 64, repair & 3);

    FakeBoard board;
    board.Write("/tmp/flash3", package);
    board.Write("/usr/upgrade", "MARKER=3510\nVERSION=" + std::to_string(version) + "\n");
    board.Fail("", EIO, failing_call);
    const int result =
        board.Run(CFlash_TEVWrite, "/tmp/flash3", "/dev/mtd/1", "/dev/mtd/2", "/dev/mtd/3", flags);
    const bool passes = PassesAllChecks(package, version, (flags & UPGRADE_FLAG_CHECK_MARKER) != 0);
    // A file of the board that cannot be opened or read gives its default, or nothing.
    const bool may_pass = passes || (failing_call != 0 && PassesAllChecks(package, 1, false));
    const bool touched = board.transcript({"erase", "write"}) != "\n";
    if (!may_pass) {
        EXPECT_EQ(result, -1);
        EXPECT_FALSE(touched);
    }
    if (passes && failing_call == 0) {
        EXPECT_EQ(result, 0);
        ExpectInstalled(board, package, Measure(package, version));
    }
    EXPECT_EQ(touched, result == 0);
}
