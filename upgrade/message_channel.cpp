#include "upgrade/message_channel.h"

#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <span>

#include "upgrade/local_udp.h"
#include "util/elapsed_time.h"
#include "util/error_text.h"
#include "util/loopback.h"

namespace
{

constexpr CICOMM::Operations kOperations{CICOMM_Close, CICOMM_GetFd,         CICOMM_Send,
                                         CICOMM_Recv,  CICOMM_GetRecvHeader, CICOMM_GetRecvData};

constexpr int32_t kSendSeconds = 3;

/// Sends all of `message`, for about three seconds. Prints when it fails.
bool SendAll(int fd, uint16_t port, std::span<const uint8_t> message)
{
    const auto total = static_cast<int>(message.size());
    ssize_t sent = -1;
    TimeStamp now = Now();
    const int64_t deadline = int64_t{now.seconds} + kSendSeconds;

    // The time counts after every attempt, also after the one that sent the rest.
    while (fd >= 0 && now.seconds <= deadline) {
        if (message.empty()) {
            return true;
        }
        sent = SendToLoopback(fd, port, message);
        if (sent == 0) {
            break;
        }
        if (sent > 0) {
            message = message.subspan(static_cast<size_t>(sent));
        } else if (errno == EAGAIN || errno == EINTR) {
            usleep(1);
        } else {
            std::printf("[SendTo] Error Number : %d, Error String %s\n", errno, ErrorText(errno));
            break;
        }
        now = Now();
    }
    std::printf("[%s] error, reason(SendTo %d vs %d)\n", "CICOMM_Send", static_cast<int>(sent),
                total);
    return false;
}

} // namespace

int CICOMM_Init(CICOMM *channel, uint16_t port)
{
    channel->operations = kOperations;
    channel->port = port;
    channel->fd = port != 0 ? TEV_OpenLocalUDPSSocket(port) : TEV_OpenLocalUDPCSocket();
    if (channel->fd < 0) {
        // The same words for a channel that only sends.
        std::printf("[%s] error, reason(TEV_OpenLocalUDPSSocket)\n", "CICOMM_Init");
        channel->operations.close(channel);
        return -1;
    }
    return 0;
}

int CICOMM_Close(CICOMM *channel)
{
    if (channel->fd < 0) {
        return channel->fd;
    }
    const int result = close(channel->fd);
    channel->fd = -1;
    return result;
}

int CICOMM_GetFd(CICOMM *channel)
{
    return channel->fd;
}

int CICOMM_Send(CICOMM *channel, uint32_t id, uint16_t port, const void *payload, int32_t size)
{
    if (payload == nullptr && size != 0) {
        std::printf("[%s] error, reason(size[%d], buff[%x])\n", "CICOMM_Send", size, 0U);
        return -1;
    }
    if (size < 0 || size > kMaxPayload) {
        std::printf("[%s] error, reason(size over %d vs %d)\n", "CICOMM_Send", size, kMaxPayload);
        return -2;
    }
    Message &message = channel->send_buffer;
    message.header = {{'I', 'C', 'O', 'M'}, 1, id, channel->port, size, {}};
    const auto payload_size = static_cast<size_t>(size);
    if (payload_size != 0) {
        std::memcpy(message.payload.data(), payload, payload_size);
    }
    const size_t total = sizeof(MessageHeader) + payload_size;
    const auto *bytes = reinterpret_cast<const uint8_t *>(&message);
    return SendAll(channel->fd, port, {bytes, total}) ? static_cast<int>(total) : -4;
}

int CICOMM_Recv(CICOMM *channel, uint32_t *id)
{
    if (channel->fd < 0) {
        return -1;
    }
    if (recvfrom(channel->fd, &channel->receive_buffer, sizeof channel->receive_buffer, 0, nullptr,
                 nullptr) < 1) {
        std::printf("[%s] error, reason(recvfrom)\n", "CICOMM_Recv");
        return -1;
    }
    const MessageHeader &header = channel->receive_buffer.header;
    if (id != nullptr) {
        *id = header.id;
    }
    return header.payload_size;
}

const MessageHeader *CICOMM_GetRecvHeader(CICOMM *channel)
{
    return &channel->receive_buffer.header;
}

const uint8_t *CICOMM_GetRecvData(CICOMM *channel)
{
    return channel->receive_buffer.payload.data();
}
