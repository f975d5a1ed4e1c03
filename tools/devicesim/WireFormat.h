#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

/// The bootloader's wire format as the device sees it. A word is 16 bits and travels low byte first.
///
/// A request is: start byte, command, address word, count word, for a write `count` data words, checksum word. The
/// checksum starts from 0xFFFF and XORs in every word before it. A reply is a status byte alone, or a data reply:
/// status `Data`, three bytes that the host does not look at, count word, data words, checksum word by the same rule,
/// with which all bytes of the reply XOR to 0.
namespace devicesim
{

constexpr std::uint8_t requestStart = 0x80;
constexpr std::size_t headerBytes = 6;
constexpr std::size_t checksumBytes = 2;

/// The host refuses a data reply of 2048 bytes or more, which leaves room for 1019 words.
constexpr std::size_t largestReadCount = 1019;

/// The fixed parameters without which nothing is erased.
constexpr std::uint16_t eraseAddress = 0xFF00;
constexpr std::uint16_t eraseCount = 0xA506;

/// A host that only wants a sign of life asks whether the one word here is blank.
constexpr std::uint16_t pingAddress = 0xFFF0;

enum class Command : std::uint8_t {
    WriteBlock = 0x12,
    ReadBlock = 0x14,
    Erase = 0x16,
    Reset = 0x1A,
    BlankCheck = 0x1C,
    GetVersion = 0x1E
};

enum class Status : std::uint8_t { NotBlank = 0x70, Data = 0x80, Ok = 0x90, Refused = 0xA0 };

/// The name of a command in reports and log lines; null for a byte that is no command.
constexpr const char* commandName(std::uint8_t code)
{
    switch (static_cast<Command>(code)) {
    case Command::WriteBlock:
        return "write";
    case Command::ReadBlock:
        return "read";
    case Command::Erase:
        return "erase";
    case Command::Reset:
        return "reset";
    case Command::BlankCheck:
        return "blank-check";
    case Command::GetVersion:
        return "version";
    }
    return nullptr;
}

constexpr std::uint16_t wordAt(std::span<const std::uint8_t> bytes, std::size_t offset)
{
    return static_cast<std::uint16_t>(bytes[offset] | bytes[offset + 1] << 8);
}

/// @param bytes whole words, without the checksum itself.
constexpr std::uint16_t checksumOf(std::span<const std::uint8_t> bytes)
{
    std::uint16_t sum = 0xFFFF;
    for (std::size_t offset = 0; offset + 1 < bytes.size(); offset += 2) {
        sum = static_cast<std::uint16_t>(sum ^ wordAt(bytes, offset));
    }
    return sum;
}

} // namespace devicesim
