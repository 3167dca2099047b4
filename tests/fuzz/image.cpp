// The checks of the kernel image and of the file system image, against a model.
//
// Input: which CRCs are made right, and the offset; the file.
#include "flash/uimage.h"

#include "flash/jffs2.h"
#include "tests/fuzz/fuzz.h"
#include "tests/fuzz/image_model.h"

void Fuzz(const std::string &input)
{
    const auto fields = Fields(input, 2);
    const int offset = Digit(fields[0], 1);
    std::string file = fields[1];
    RepairImage(file, static_cast<size_t>(offset), Digit(fields[0], 0));

    FakeBoard board;
    board.Write("/tmp/a", file);
    const std::string fault = LoggedFault(file, offset);
    EXPECT_EQ(board.Run(CFlash_CheckImage, "/tmp/a", offset), fault.empty() ? 0 : -1);
    EXPECT_EQ(board.transcript(), fault.empty() || fault == "silent"
                                      ? "\n"
                                      : "\nsyslog alert [CFlash_CheckImage] " + fault + "\\n\n");
    EXPECT_EQ(board.Run(CFlash_CheckJffs2, "/tmp/a", offset), IsFileSystem(file, offset) ? 0 : -1);
}
