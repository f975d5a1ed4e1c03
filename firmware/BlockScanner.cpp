#include "firmware/BlockScanner.h"

#include "firmware/MemoryImage.h"

#include <algorithm>

namespace
{

constexpr std::uint32_t lineLength = std::tuple_size_v<MemoryLine>;
constexpr std::uint64_t addressSpace = std::uint64_t{1} << 32;

/// So many unused bytes in a row end a block, and are skipped ahead of one.
constexpr std::uint32_t gapLength = 4;

/// `length` bytes of the image from `address` on; what no line covers is 0xFF.
QByteArray bytesAt(const MemoryImage& image, std::uint32_t address, std::size_t length)
{
    QByteArray bytes(static_cast<qsizetype>(length), '\xFF');
    const MemoryImage::Lines& lines = image.lines();
    for (auto line = lines.lower_bound(address / lineLength); line != lines.end(); ++line) {
        const std::uint32_t lineAddress = line->first * lineLength;
        const std::uint32_t skip = lineAddress < address ? address - lineAddress : 0;
        const std::size_t done = lineAddress + skip - address;
        if (done >= length) {
            break;
        }
        std::copy_n(line->second.begin() + skip, std::min<std::size_t>(lineLength - skip, length - done),
            bytes.begin() + static_cast<qsizetype>(done));
    }
    return bytes;
}

/// Where the unused bytes begin that end the block: the first four in a row, kept even by one 0xFF in the block.
qsizetype usedLength(const QByteArray& bytes)
{
    const qsizetype gap = bytes.indexOf(QByteArray(gapLength, '\xFF'));
    return gap < 0 ? bytes.size() : gap + gap % 2;
}

} // namespace

BlockScanner::BlockScanner(const MemoryImage& memoryImage)
    : image(memoryImage)
{
}

void BlockScanner::reset(std::uint32_t startAddress)
{
    address = startAddress;
    data.clear();
    nextAddress = startAddress;
}

bool BlockScanner::next(std::size_t maxLength)
{
    const auto start =
        nextAddress < addressSpace ? findBlockStart(static_cast<std::uint32_t>(nextAddress)) : std::nullopt;
    if (!start) {
        address = 0;
        data.clear();
        return false;
    }
    address = *start;
    data = bytesAt(image, address, maxLength);
    data.truncate(std::min(usedLength(data), static_cast<qsizetype>(addressSpace - address)));
    nextAddress = std::uint64_t{address} + static_cast<std::uint64_t>(data.size());
    return true;
}

/// The even address where the block with the next used byte begins, searching from `from` on. Up to three unused bytes
/// between the begin of the search, or of the line that holds the used byte, and that byte belong to the block.
std::optional<std::uint32_t> BlockScanner::findBlockStart(std::uint32_t from) const
{
    const MemoryImage::Lines& lines = image.lines();
    for (auto line = lines.lower_bound(from / lineLength); line != lines.end(); ++line) {
        const std::uint32_t offset = line->first == from / lineLength ? from % lineLength : 0;
        const auto begin = line->second.begin() + offset;
        const auto used = std::find_if(begin, line->second.end(), [](std::uint8_t byte) { return byte != 0xFF; });
        if (used != line->second.end()) {
            const auto unused = static_cast<std::uint32_t>(used - begin);
            const std::uint32_t start = unused < gapLength ? offset : offset + unused;
            return line->first * lineLength + start / 2 * 2;
        }
    }
    return std::nullopt;
}
