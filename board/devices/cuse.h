// Character devices that a program serves through the kernel's CUSE.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <vector>

/// One ioctl request that a device knows.
struct CuseRequest {
    uint32_t number;
    uint32_t size;  ///< bytes of the record behind the argument
    bool is_answer; ///< the record goes to the caller; otherwise it comes from the caller
};

/// A device: its node and its requests.
class CuseDevice
{
public:
    virtual ~CuseDevice() = default;
    /// The node's name below "/dev/".
    [[nodiscard]] virtual std::string Name() const = 0;
    /// Any other request fails with ENOTTY.
    [[nodiscard]] virtual std::vector<CuseRequest> Requests() const = 0;
    /// @param record  as large as the request says; Handle fills it if it is an answer
    /// @return the result of ioctl; an error is a negative errno
    virtual int32_t Handle(uint32_t number, std::span<uint8_t> record) = 0;
};

/// Makes the node and serves it until the program is killed. Returns only on failure.
void Serve(CuseDevice &device);
