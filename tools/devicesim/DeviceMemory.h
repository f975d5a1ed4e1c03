#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

namespace devicesim
{

/// One bit of the memory that does not change any more.
struct StuckBit {
    std::uint16_t address = 0;
    /// 0 (least significant) to 7.
    int bit = 0;
    /// What the bit reads as for ever: true, it never clears; false, it never sets.
    bool value = true;
};

/// Flash memory of 64 KiB: writing only clears bits, and only erasing sets them again.
class DeviceMemory
{
public:
    static constexpr std::size_t size = 0x10000;

    /// @param content what the memory holds at first; shorter ones are filled up with 0xFF, longer ones cut off.
    explicit DeviceMemory(std::span<const std::uint8_t> content, std::vector<StuckBit> stuck = {});

    /// @return whether the stretch lies within the memory.
    static bool holds(std::size_t address, std::size_t length) { return address + length <= size; }

    /// Sets every bit.
    void erase();

    /// Clears the bits that are 0 in `bytes`. The stretch lies within the memory.
    void write(std::size_t address, std::span<const std::uint8_t> bytes);

    /// @return whether all bits of the stretch, which lies within the memory, are set.
    bool isBlank(std::size_t address, std::size_t length) const;

    const std::vector<std::uint8_t>& bytes() const { return cells; }

private:
    void applyStuckBits();

    std::vector<std::uint8_t> cells;
    std::vector<StuckBit> stuckBits;
};

} // namespace devicesim
