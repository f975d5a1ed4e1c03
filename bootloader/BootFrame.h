#pragma once

#include "bootloader/BootTables.h"

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

/// A request as words in the host's byte order. On the wire each word travels low byte first:
///
///     start (0x80), command | address | count | data words, as many as count says | checksum
///
/// Only a request of `CmdWriteBlock` has data; the others are four words, whatever stands in count.
using BootFrame = std::vector<std::uint16_t>;

namespace boot
{

inline constexpr std::uint8_t frameStart = 0x80;
inline constexpr std::size_t frameWordsWithoutData = 4;
/// The longest run of words that a count on the wire can tell.
inline constexpr std::size_t maxWords = 0xFFFF;

/// A data reply: status | three bytes | count | data words | checksum. Offsets and sizes in bytes.
inline constexpr std::size_t replyCountOffset = 4;
inline constexpr std::size_t replyDataOffset = 6;
inline constexpr std::size_t replyChecksumSize = 2;
/// A reply has to be smaller than this.
inline constexpr std::size_t replyCapacity = 2048;

constexpr std::size_t replySize(std::size_t dataWords)
{
    return replyDataOffset + 2 * dataWords + replyChecksumSize;
}
static_assert(replySize(0) == 8 && replySize(256) == 520);
static_assert(replySize(1019) == 2046 && replySize(1020) >= replyCapacity, "1019 words are the longest good reply");

/// Reads a word off the wire.
constexpr std::uint16_t wordFrom(std::uint8_t low, std::uint8_t high)
{
    return static_cast<std::uint16_t>(high << 8 | low);
}

constexpr std::uint16_t firstWord(BootCommand command)
{
    return wordFrom(frameStart, static_cast<std::uint8_t>(command));
}

constexpr BootCommand commandOf(std::uint16_t firstWordOfFrame)
{
    return static_cast<BootCommand>(firstWordOfFrame >> 8);
}

/// The words that a request without data asks for.
constexpr std::uint16_t countOf(std::span<const std::uint16_t> frame)
{
    return frame[2];
}

/// Whether a request is answered by a data reply; if not, by a bare status.
constexpr bool wantsData(std::span<const std::uint16_t> frame)
{
    return isAnswer(commandOf(frame.front()), BootStatus::Data);
}

/// Whether a request changes the memory of the device, or tells what is in it: it must not reach another device.
constexpr bool concernsMemory(std::span<const std::uint16_t> frame)
{
    const BootCommand command = commandOf(frame.front());
    return command == BootCommand::CmdErase || command == BootCommand::CmdWriteBlock ||
           command == BootCommand::CmdReadBlock;
}

/// The checksum of a request: all words before it, combined by XOR from 0xFFFF on.
constexpr std::uint16_t requestChecksum(std::span<const std::uint16_t> words)
{
    std::uint16_t sum = 0xFFFF;
    for (const std::uint16_t word : words) {
        sum ^= word;
    }
    return sum;
}
static_assert(
    requestChecksum(std::array<std::uint16_t, 3>{firstWord(BootCommand::CmdErase), 0xFF00, 0xA506}) == 0xB379);

/// The test of a whole reply: all its bytes, status and checksum included, combined by XOR, are 0.
constexpr bool isIntact(std::span<const std::uint8_t> reply)
{
    std::uint8_t sum = 0;
    for (const std::uint8_t byte : reply) {
        sum ^= byte;
    }
    return sum == 0;
}

/// The status that a byte on the wire stands for; `None` when it is no status byte.
constexpr BootStatus statusOf(std::uint8_t byte)
{
    switch (static_cast<BootStatus>(byte)) {
    case BootStatus::NotBlank:
    case BootStatus::Data:
    case BootStatus::Ok:
    case BootStatus::Refused:
        return static_cast<BootStatus>(byte);
    case BootStatus::None:
        break;
    }
    return BootStatus::None;
}

/// Words that hold `size` bytes, the last one half filled if need be.
constexpr std::uint64_t wordsFor(std::uint64_t size)
{
    return size / 2 + size % 2;
}

/// A whole request without data.
BootFrame makeFrame(BootCommand command, std::uint16_t address, std::uint16_t count);

/// A whole request with data, at most `maxWords` words; an odd last byte is filled up with 0xFF.
BootFrame makeFrame(BootCommand command, std::uint16_t address, std::span<const std::uint8_t> data);

} // namespace boot
