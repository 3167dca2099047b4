#include "board/devices/cuse.h"

#include <fcntl.h>
#include <linux/fuse.h>
#include <sys/uio.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>

namespace
{

constexpr uint32_t kLargestTransfer = 65536;

class Server
{
public:
    Server(CuseDevice &device, int fd) : device_(device), fd_(fd) {}
    void Run();

private:
    void Reply(int error, std::span<const uint8_t> body, std::span<const uint8_t> more = {});
    template<typename Body>
    void Reply(const Body &body, std::span<const uint8_t> more = {})
    {
        Reply(0, {reinterpret_cast<const uint8_t *>(&body), sizeof body}, more);
    }
    void Init();
    void Request();
    void AskForRecord(const CuseRequest &request, uint64_t address);

    CuseDevice &device_;
    int fd_;
    std::array<uint8_t, size_t{2} * kLargestTransfer> message_{};
    fuse_in_header header_{};
};

void Server::Reply(int error, std::span<const uint8_t> body, std::span<const uint8_t> more)
{
    const size_t size = sizeof(fuse_out_header) + body.size() + more.size();
    fuse_out_header header{static_cast<uint32_t>(size), -error, header_.unique};
    const std::array<iovec, 3> parts{{{&header, sizeof header},
                                      {const_cast<uint8_t *>(body.data()), body.size()},
                                      {const_cast<uint8_t *>(more.data()), more.size()}}};
    if (writev(fd_, parts.data(), parts.size()) < 0) {
        std::perror("cuse reply");
    }
}

void Server::Init()
{
    cuse_init_in in{};
    std::memcpy(&in, &message_[sizeof header_], sizeof in);
    cuse_init_out out{};
    out.major = in.major;
    out.minor = in.minor;
    out.flags = in.flags & CUSE_UNRESTRICTED_IOCTL;
    out.max_read = kLargestTransfer;
    out.max_write = kLargestTransfer;
    const std::string name = "DEVNAME=" + device_.Name();
    Reply(out, {reinterpret_cast<const uint8_t *>(name.c_str()), name.size() + 1});
}

/// The plain request numbers do not tell the kernel what to copy. This reply does, and the kernel
/// repeats the request.
void Server::AskForRecord(const CuseRequest &request, uint64_t address)
{
    const fuse_ioctl_out retry{0, FUSE_IOCTL_RETRY, request.is_answer ? 0U : 1U,
                               request.is_answer ? 1U : 0U};
    const fuse_ioctl_iovec record{address, request.size};
    Reply(retry, {reinterpret_cast<const uint8_t *>(&record), sizeof record});
}

void Server::Request()
{
    fuse_ioctl_in in{};
    std::memcpy(&in, &message_[sizeof header_], sizeof in);
    for (const CuseRequest &request : device_.Requests()) {
        if (request.number != in.cmd) {
            continue;
        }
        if ((request.is_answer ? in.out_size : in.in_size) < request.size) {
            AskForRecord(request, in.arg);
            return;
        }
        std::vector<uint8_t> record(request.size);
        if (!request.is_answer) {
            std::memcpy(record.data(), &message_[sizeof header_ + sizeof in], record.size());
        }
        const fuse_ioctl_out out{device_.Handle(in.cmd, record), 0, 0, 0};
        Reply(out, request.is_answer ? record : std::span<const uint8_t>{});
        return;
    }
    Reply(ENOTTY, {});
}

void Server::Run()
{
    while (read(fd_, message_.data(), message_.size()) >= static_cast<ssize_t>(sizeof header_)) {
        std::memcpy(&header_, message_.data(), sizeof header_);
        switch (header_.opcode) {
        case CUSE_INIT:
            Init();
            break;
        case FUSE_OPEN:
            Reply(fuse_open_out{});
            break;
        case FUSE_IOCTL:
            Request();
            break;
        case FUSE_INTERRUPT: // has no answer
            break;
        case FUSE_RELEASE:
        case FUSE_FLUSH:
            Reply(0, {});
            break;
        default:
            Reply(ENOSYS, {});
        }
    }
}

} // namespace

void Serve(CuseDevice &device)
{
    const int fd = open("/dev/cuse", O_RDWR);
    if (fd >= 0) {
        Server{device, fd}.Run();
    }
    std::perror(device.Name().c_str());
}
