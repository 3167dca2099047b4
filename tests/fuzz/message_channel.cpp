// Datagrams that the message channel receives, and the messages that it sends.
//
// Input: by how much the first datagram is lengthened, in units of 25,600 bytes; two datagrams.
#include "upgrade/message_channel.h"

#include <cstring>

#include "tests/fuzz/fuzz.h"

namespace
{

constexpr size_t kLongest = 102'400;

CICOMM g_channel; // static, since it is large

void ExpectReceived(FakeBoard &board, std::string datagram, std::string &buffer)
{
    board.datagrams.push_back(datagram);
    uint32_t id = 1;
    const int result = CICOMM_Recv(&g_channel, &id);
    datagram.resize(std::min(datagram.size(), kLongest));
    if (datagram.empty()) {
        EXPECT_EQ(result, -1);
        EXPECT_EQ(id, 1U);
        return;
    }
    // What a short datagram lacks is still there from the one before it.
    buffer.replace(0, datagram.size(), datagram);
    EXPECT_EQ(std::memcmp(&id, &buffer[8], 4), 0);
    EXPECT_EQ(std::memcmp(&result, &buffer[16], 4), 0);
    EXPECT_EQ(std::memcmp(CICOMM_GetRecvHeader(&g_channel), buffer.data(), buffer.size()), 0);
    EXPECT_EQ(std::memcmp(CICOMM_GetRecvData(&g_channel), &buffer[32], kLongest - 32), 0);
}

} // namespace

void Fuzz(const std::string &input)
{
    const auto fields = Fields(input, 3);
    const std::string lengthened =
        fields[1] + std::string(static_cast<size_t>(Digit(fields[0], 0)) % 8 * 25'600, 'x');
    FakeBoard board;
    board.Run([&] {
        g_channel = {};
        EXPECT_EQ(CICOMM_Init(&g_channel, 4200), 0);
        std::string buffer(kLongest, '\0');
        ExpectReceived(board, lengthened, buffer);
        ExpectReceived(board, fields[2], buffer);

        const auto size = static_cast<int32_t>(lengthened.size());
        const int sent = CICOMM_Send(&g_channel, 7, 4200, lengthened.data(), size);
        EXPECT_EQ(sent, size <= 102'368 ? size + 32 : -2);
        if (sent > 0) {
            EXPECT_EQ(CICOMM_Recv(&g_channel, nullptr), size);
            EXPECT_EQ(
                std::memcmp(CICOMM_GetRecvData(&g_channel), lengthened.data(), lengthened.size()),
                0);
        }
        return g_channel.operations.close(&g_channel);
    });
}
