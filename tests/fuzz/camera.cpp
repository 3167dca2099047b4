// Replies of the camera board, through get_cb_cam_info, against a model.
//
// Input: '1' for -v, and by how many hundred bytes the second piece is lengthened; then the pieces
// that one read after another finds on the line.
#include <algorithm>

#include "tests/fuzz/fuzz.h"

namespace
{

/// The byte that counts of the next reply; what is missing is left from the one before.
uint8_t Answer(std::deque<std::string> &pieces, std::string &buffer)
{
    for (size_t count = 0; count < 10 && !pieces.empty();) {
        const std::string read = pieces.front().substr(0, 256);
        buffer.replace(count, read.size(), read);
        count += read.size();
        if (pieces.front().erase(0, read.size()).empty()) {
            pieces.pop_front();
        }
    }
    return static_cast<uint8_t>(buffer[6]);
}

std::string Hex2(uint8_t byte)
{
    std::string text = Hex({static_cast<char>(byte)});
    std::ranges::transform(text, text.begin(), toupper);
    return text;
}

std::string Printed(uint8_t model, bool flag, uint8_t version)
{
    const std::map<uint8_t, std::string> sensors = {{0x26, "2M Panasonic"},
                                                    {0x36, "2M OmniVision"},
                                                    {0x46, "2M Sony"},
                                                    {0x16, "1.3M Panasonic"}};
    const auto sensor = sensors.find(model);
    std::string resolution;
    if (sensor != sensors.end()) {
        resolution = model == 0x16 ? (flag ? "1280x1024" : "720p") : (flag ? "720p" : "1080p");
    }
    return "\nout VERSION=" + Hex2(version) +
           "\nout MODEL=" + (sensor != sensors.end() ? sensor->second : "Unknown " + Hex2(model)) +
           "\nout RESOLUTION=" + resolution + "\n";
}

} // namespace

void Fuzz(const std::string &input)
{
    const auto fields = Fields(input, 20);
    FakeSerialLine::Pieces pieces;
    for (size_t i = 1; i < fields.size(); ++i) {
        const int hundreds = i == 2 ? Digit(fields[0], 1) % 10 : 0;
        const std::string piece = fields[i] + std::string(static_cast<size_t>(hundreds) * 100, '&');
        if (!piece.empty()) {
            pieces.push_back(piece);
        }
    }
    FakeSerialLine line;
    line.answer = [left = pieces](auto &) mutable { return std::exchange(left, {}); };
    std::string buffer(265, '\0');
    const uint8_t model = Answer(pieces, buffer);
    const bool flag = Answer(pieces, buffer) != 0;
    const uint8_t version = Answer(pieces, buffer);

    FakeBoard board;
    board.devices["/dev/ttyAMA2"] = &line;
    EXPECT_EQ(board.Start({"get_cb_cam_info", Digit(fields[0], 0) == 1 ? "-v" : "-"}), 0);
    EXPECT_EQ(board.transcript({"out V", "out M", "out RES"}), Printed(model, flag, version));
    EXPECT_EQ(buffer.size(), 265U);
}
