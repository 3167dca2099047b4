// The board's devices that QEMU does not emulate: registers with the GPIO pins, the I2C bus and the
// two clocks. Prints one line for each request.
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <map>
#include <memory>

#include "board/devices/cuse.h"
#include "util/byte_order.h"

namespace
{

/// "hi3512_reg": sets, clears and reads bits of registers. A record has an address and bits.
class Registers : public CuseDevice
{
public:
    std::string Name() const override { return "hi3512_reg"; }
    std::vector<CuseRequest> Requests() const override
    {
        return {{kSet, 8, false}, {kClear, 8, false}, {kRead, 8, false}};
    }
    int32_t Handle(uint32_t number, std::span<uint8_t> record) override;

private:
    static constexpr uint32_t kSet = 1;
    static constexpr uint32_t kClear = 2;
    static constexpr uint32_t kRead = 3;
    static constexpr std::array<uint32_t, 8> kGpioBases{0x101E4000, 0x101E5000, 0x101E6000,
                                                        0x101E7000, 0x101F7000, 0x101F8000,
                                                        0x101F9000, 0x101FA000};

    std::map<uint32_t, uint32_t> contents_;
};

int32_t Registers::Handle(uint32_t number, std::span<uint8_t> record)
{
    uint32_t address = LoadLe32(record.data());
    const uint32_t bits = LoadLe32(&record[4]);
    const char *const names[] = {"set", "clear", "read"};
    std::printf("reg %s %08x %08x\n", names[number - kSet], address, bits);

    // The address of a data register selects the pins of an access.
    uint32_t reached = 0xFFFFFFFF;
    for (const uint32_t base : kGpioBases) {
        if (address >= base && address < base + 0x400) {
            reached = (address - base) / 4;
            address = base;
        }
    }
    uint32_t &content = contents_[address];
    if (number == kRead) {
        return static_cast<int32_t>(content & reached);
    }
    content = number == kSet ? content | (bits & reached) : content & ~(bits & reached);
    return 0;
}

/// "misc_gpio": an I2C bus on two pins. Its only device is an EEPROM. A record is one word: device,
/// register and data byte.
class I2cBus : public CuseDevice
{
public:
    std::string Name() const override { return "misc_gpio"; }
    std::vector<CuseRequest> Requests() const override
    {
        return {{kWrite, 4, false}, {kRead, 4, false}};
    }
    int32_t Handle(uint32_t number, std::span<uint8_t> record) override;

private:
    static constexpr uint32_t kWrite = 0x23;
    static constexpr uint32_t kRead = 0x24;
    static constexpr uint8_t kEeprom = 0x50;

    std::array<uint8_t, 256> eeprom_{};
};

int32_t I2cBus::Handle(uint32_t number, std::span<uint8_t> record)
{
    const uint32_t word = LoadLe32(record.data());
    std::printf("i2c %s %08x\n", number == kWrite ? "write" : "read", word);
    if (word >> 16 != kEeprom) {
        return -EIO; // no device acknowledges
    }
    uint8_t &cell = eeprom_[(word >> 8) & 0xFF];
    if (number == kRead) {
        return cell;
    }
    cell = static_cast<uint8_t>(word);
    return 0;
}

/// A clock. It stands still, so that a test knows its time.
class Clock : public CuseDevice
{
public:
    /// Year, month, day, hour, minute, second; the SoC's driver adds the day of the week.
    Clock(std::string name, uint32_t number, uint32_t size, uint32_t year)
        : name_(std::move(name)), number_(number), size_(size), year_(year)
    {
    }
    std::string Name() const override { return name_; }
    std::vector<CuseRequest> Requests() const override { return {{number_, size_, true}}; }
    int32_t Handle(uint32_t number, std::span<uint8_t> record) override;

private:
    std::string name_;
    uint32_t number_;
    uint32_t size_;
    uint32_t year_;
};

int32_t Clock::Handle(uint32_t number, std::span<uint8_t> record)
{
    std::printf("%s %08x %zu bytes\n", name_.c_str(), number, record.size());
    const std::array<uint32_t, 7> fields{year_, 3, 7, 5, 4, 9, 6};
    for (size_t i = 0; 4 * i < record.size(); ++i) {
        StoreLe32(&record[4 * i], fields[i]);
    }
    return 0;
}

} // namespace

int main()
{
    std::setvbuf(stdout, nullptr, _IOLBF, BUFSIZ);
    Registers registers;
    I2cBus i2c_bus;
    Clock soc_clock{"hi_rtc", 0x801C7009, 28, 2009};
    Clock chip_clock{"ds1339", 1, 24, 2011};
    for (CuseDevice *device :
         std::array<CuseDevice *, 4>{&registers, &i2c_bus, &soc_clock, &chip_clock}) {
        if (fork() == 0) {
            Serve(*device);
            return 1;
        }
    }
    return 0;
}
