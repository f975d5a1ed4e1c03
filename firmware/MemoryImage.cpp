#include "firmware/MemoryImage.h"

#include <algorithm>

namespace
{

constexpr std::size_t lineLength = std::tuple_size_v<MemoryLine>;

MemoryLine unusedLine()
{
    MemoryLine line;
    line.fill(0xFF);
    return line;
}

} // namespace

void MemoryImage::clear()
{
    content.clear();
}

void MemoryImage::insert(std::uint32_t address, const std::uint8_t* bytes, std::size_t count)
{
    while (count > 0) {
        const std::size_t offset = address % lineLength;
        const std::size_t length = std::min(lineLength - offset, count);
        MemoryLine& line = lineAt(static_cast<std::uint32_t>(address / lineLength));
        std::copy_n(bytes, length, line.begin() + offset);
        bytes += length;
        address += static_cast<std::uint32_t>(length);
        count -= length;
    }
}

AddressRange MemoryImage::addressRange() const
{
    if (content.empty()) {
        return {};
    }
    constexpr auto length = static_cast<std::uint32_t>(lineLength);
    return {content.begin()->first * length, content.rbegin()->first * length + (length - 1)};
}

std::optional<std::uint32_t> MemoryImage::firstDataAbove(std::uint32_t limit) const
{
    for (auto it = content.lower_bound(static_cast<std::uint32_t>(limit / lineLength)); it != content.end(); ++it) {
        for (std::uint32_t i = 0; i < lineLength; ++i) {
            const auto address = static_cast<std::uint32_t>(it->first * lineLength + i);
            if (address > limit && it->second[i] != 0xFF) {
                return address;
            }
        }
    }
    return std::nullopt;
}

/// The line with this index, made of unused bytes if the image does not hold it yet. Most texts come in address order,
/// so the place behind the last line is tried first.
MemoryLine& MemoryImage::lineAt(std::uint32_t index)
{
    const bool behindLast = content.empty() || content.rbegin()->first < index;
    const auto place = behindLast ? content.end() : content.lower_bound(index);
    return content.try_emplace(place, index, unusedLine())->second;
}
