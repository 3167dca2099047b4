// The scanner of the boot loader's environment, through get_boot_param, against a model.
//
// Input: the environment, which may end early.
#include <algorithm>

#include "tests/fuzz/fuzz.h"

namespace
{

/// The value behind the key: what is kept of it, with each "%%" as one "%".
std::string Find(const std::string &environment, const std::string &key, size_t longest)
{
    std::string matched;
    std::string value;
    for (const char byte : environment.substr(0, 512)) {
        if (matched != key) {
            matched += byte;
            matched = key.starts_with(matched) ? matched : ""; // the byte is dropped
            continue;
        }
        value += byte;
        if (byte == '\0' || value.size() == longest) {
            std::string text;
            value = value.substr(0, 255).c_str();
            for (size_t i = 0; i < value.size(); i += value.substr(i, 2) == "%%" ? 2 : 1) {
                text += value[i];
            }
            return text;
        }
    }
    return "";
}

} // namespace

void Fuzz(const std::string &input)
{
    FakeMtd partition;
    partition.bytes.assign(0x40000, 0);
    partition.bytes.insert(partition.bytes.end(), input.begin(), input.end());
    FakeBoard board;
    board.devices["/dev/mtd/0"] = &partition;
    EXPECT_EQ(board.Start({"get_boot_param", "/tmp/p"}), 0);

    const std::string mac = Find(input, "ethaddr=", 17);
    const std::string written[] = {
        "MAC=" + (mac.empty() ? "02:51:56:00:00:00" : mac) + "\" > /tmp/p\n",
        "SERIAL_NO=" + Find(input, "serial_no=", 10) + "\" >> /tmp/p\n",
        "PRODUCT_CODE=" + Find(input, "product_code=", 512) + "\" >> /tmp/p\n",
    };
    std::string expected = "\n";
    for (const std::string &line : written) {
        expected += "sh echo \"" + line;
    }
    EXPECT_EQ(board.transcript({"sh"}), expected);
}
