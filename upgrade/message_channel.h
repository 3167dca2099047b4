// The local message channel: framed datagrams between the board's programs.
//
// A message is a header of eight 32-bit words in host order (see MessageHeader), then the payload.
// The receiver trusts the sender: it checks neither the magic nor the declared size.
//
// No applet uses it. Its functions are for the board's other programs, so they are an interface.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

/// What every message begins with.
struct MessageHeader {
    std::array<char, 4> magic; ///< "ICOM"
    uint32_t version;          ///< 1
    uint32_t id;               ///< the command code
    uint32_t sender_port;      ///< 0 for a channel that only sends
    int32_t payload_size;      ///< bytes after the header
    std::array<uint32_t, 3> reserved;
};
static_assert(sizeof(MessageHeader) == 32 && offsetof(MessageHeader, payload_size) == 16);

constexpr int32_t kMaxPayload = 102368; ///< bytes

/// The longest message.
struct Message {
    MessageHeader header;
    std::array<uint8_t, kMaxPayload> payload;
};
static_assert(sizeof(Message) == 102400);

/// A channel and its operations. Larger than 200 KB: keep it in static storage.
struct CICOMM {
    struct Operations {
        int (*close)(CICOMM *);
        int (*get_fd)(CICOMM *);
        int (*send)(CICOMM *, uint32_t id, uint16_t port, const void *payload, int32_t size);
        int (*recv)(CICOMM *, uint32_t *id);
        const MessageHeader *(*get_recv_header)(CICOMM *);
        const uint8_t *(*get_recv_data)(CICOMM *);
    };

    int32_t fd; ///< -1 while not open
    uint32_t port;
    Message send_buffer;
    Message receive_buffer;
    Operations operations;
};

/// Opens a channel that receives on `port`; with port 0 one that only sends.
///
/// @return 0, or -1 with a message and the channel closed
int CICOMM_Init(CICOMM *channel, uint16_t port);

/// Closes the channel. Returns close's result; the negative descriptor when it was not open.
int CICOMM_Close(CICOMM *channel);

/// The socket, for select or poll; negative when not open.
int CICOMM_GetFd(CICOMM *channel);

/// Sends a message to `port`, trying for about three seconds.
///
/// @return `size` + 32; -1 for a null payload with a size, -2 for a size beyond kMaxPayload (or
///         below 0), -4 when sending failed; each with a message
int CICOMM_Send(CICOMM *channel, uint32_t id, uint16_t port, const void *payload, int32_t size);

/// Waits for a message.
///
/// @param id  receives the message id; may be null
/// @return the payload size that the message declares, or -1
int CICOMM_Recv(CICOMM *channel, uint32_t *id);

/// The header of the last message.
const MessageHeader *CICOMM_GetRecvHeader(CICOMM *channel);

/// The payload of the last message.
const uint8_t *CICOMM_GetRecvData(CICOMM *channel);
