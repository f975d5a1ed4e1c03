#include "tools/devicesim/DeviceMemory.h"

#include <algorithm>
#include <utility>

namespace devicesim
{

DeviceMemory::DeviceMemory(std::span<const std::uint8_t> content, std::vector<StuckBit> stuck)
    : cells(content.begin(), content.end())
    , stuckBits(std::move(stuck))
{
    cells.resize(size, 0xFF);
    applyStuckBits();
}

void DeviceMemory::erase()
{
    std::fill(cells.begin(), cells.end(), std::uint8_t{0xFF});
    applyStuckBits();
}

void DeviceMemory::write(std::size_t address, std::span<const std::uint8_t> bytes)
{
    for (const std::uint8_t byte : bytes) {
        cells[address] = static_cast<std::uint8_t>(cells[address] & byte);
        ++address;
    }
    applyStuckBits();
}

bool DeviceMemory::isBlank(std::size_t address, std::size_t length) const
{
    const auto first = cells.begin() + static_cast<std::ptrdiff_t>(address);
    return std::all_of(
        first, first + static_cast<std::ptrdiff_t>(length), [](std::uint8_t byte) { return byte == 0xFF; });
}

void DeviceMemory::applyStuckBits()
{
    for (const StuckBit& stuck : stuckBits) {
        std::uint8_t& cell = cells[stuck.address];
        const int mask = 1 << stuck.bit;
        cell = static_cast<std::uint8_t>(stuck.value ? cell | mask : cell & ~mask);
    }
}

} // namespace devicesim
