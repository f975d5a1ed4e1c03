#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>

class BlockScanner;
class MemoryImage;

/// Bytes of the largest block that a burn sends.
inline constexpr std::size_t maxBurnBlockLength = 512;

/// The last address that a request to the bootloader can name: addresses have 16 bits on the wire.
inline constexpr std::uint32_t lastBurnAddress = 0xFFFF;

/// Moves to the next block as a burn sends it: of at most `maxBurnBlockLength` bytes, and ending at `lastBurnAddress`
/// if it would reach beyond. For a scanner that was reset to an even address.
/// @return as `BlockScanner::next`
bool nextBurnBlock(BlockScanner& scanner);

/// The lowest address with data behind `lastBurnAddress`; nothing for an image that can be burned.
std::optional<std::uint32_t> firstAddressOutOfReach(const MemoryImage& image);
