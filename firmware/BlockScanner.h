#pragma once

#include <QByteArray>

#include <cstddef>
#include <cstdint>
#include <optional>

class MemoryImage;

/// Cursor that cuts the used bytes of an image into blocks, in ascending address order.
class BlockScanner
{
public:
    /// The image is not owned and outlives the scanner.
    explicit BlockScanner(const MemoryImage& memoryImage);

    /// Starts the next search at `startAddress`, with no current block.
    void reset(std::uint32_t startAddress);

    /// Moves to the next block. Four bytes of 0xFF in a row end a block and lie in none; blocks begin at even addresses
    /// and have even lengths.
    /// @param maxLength the limit of a block's length in bytes, even and at least 4
    /// @return false when no block is left; `address` is then 0 and `data` empty.
    bool next(std::size_t maxLength);

    /// Address of the first byte of the current block.
    std::uint32_t address = 0;
    /// The bytes of the current block.
    QByteArray data;

private:
    std::optional<std::uint32_t> findBlockStart(std::uint32_t from) const;

    const MemoryImage& image;
    std::uint64_t nextAddress = 0;
};
