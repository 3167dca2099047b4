// Character devices served by a program, through the kernel's CUSE.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <vector>

/// One ioctl request that a device knows.
struct CuseRequest {
    uint32_t number;
    uint32_t size;  ///< bytes of the record behind the argument
    bool is_answer; ///< the record goes to the caller; otherwise it comes from there
};

/// A device: its node, and what it does with a request.
class CuseDevice
{
public:
    virtual ~CuseDevice() = default;
    /// The node is "/dev/" and this.
    [[nodiscard]] virtual std::string Name() const = 0;
    /// Anything else is answered with ENOTTY.
    [[nodiscard]] virtual std::vector<CuseRequest> Requests() const = 0;
    /// @param record  as large as the request says; to be filled when it is an answer
    /// @return what ioctl returns; an error is a negative errno
    virtual int32_t Handle(uint32_t number, std::span<uint8_t> record) = 0;
};

/// Makes the node and serves it until the program is ended. Returns only on failure.
void Serve(CuseDevice &device);
