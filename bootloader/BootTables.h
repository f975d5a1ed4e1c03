#pragma once

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdint>

/// The command codes of the bootloader.
enum class BootCommand : std::uint8_t {
    /// Writes the data of the request at its address.
    CmdWriteBlock = 0x12,
    /// Returns words from an address on.
    CmdReadBlock = 0x14,
    /// Erases the memory of the device; takes fixed parameters.
    CmdErase = 0x16,
    /// Resets the device.
    CmdReset = 0x1A,
    /// Tests whether words from an address on are blank.
    CmdBlankCheck = 0x1C,
    /// Returns versions and device identity.
    CmdGetVersion = 0x1E,
};

/// What an exchange ends with: the status byte of the reply, or `None`.
enum class BootStatus : std::int32_t {
    /// No usable reply came. Never stands on the wire.
    None = 0,
    NotBlank = 0x70,
    /// The status byte opens a data reply; the others stand alone.
    Data = 0x80,
    Ok = 0x90,
    Refused = 0xA0,
};

/// Whether a status can only be the answer to a command of this kind. A refusal cannot: it looks alike for all of them.
constexpr bool isAnswer(BootCommand command, BootStatus status)
{
    switch (status) {
    case BootStatus::Data:
        return command == BootCommand::CmdReadBlock || command == BootCommand::CmdGetVersion;
    case BootStatus::NotBlank:
        return command == BootCommand::CmdBlankCheck;
    case BootStatus::Ok:
        return command != BootCommand::CmdReadBlock && command != BootCommand::CmdGetVersion;
    case BootStatus::Refused:
    case BootStatus::None:
        return false;
    }
    return false;
}

/// How long the tool waits for the status byte after a request has left.
struct CommandDeadline {
    BootCommand command;
    std::chrono::milliseconds deadline;
};

inline constexpr std::array commandDeadlines = {
    CommandDeadline{BootCommand::CmdWriteBlock, std::chrono::milliseconds(300)},
    CommandDeadline{BootCommand::CmdReadBlock, std::chrono::milliseconds(300)},
    CommandDeadline{BootCommand::CmdErase, std::chrono::milliseconds(300)},
    CommandDeadline{BootCommand::CmdReset, std::chrono::milliseconds(25)},
    CommandDeadline{BootCommand::CmdBlankCheck, std::chrono::milliseconds(100)},
    CommandDeadline{BootCommand::CmdGetVersion, std::chrono::milliseconds(25)},
};

/// The deadline of a command that `commandDeadlines` does not hold.
inline constexpr std::chrono::milliseconds otherCommandDeadline{200};

constexpr std::chrono::milliseconds findDeadline(BootCommand command)
{
    const auto row = std::ranges::find(commandDeadlines, command, &CommandDeadline::command);
    return row == commandDeadlines.end() ? otherCommandDeadline : row->deadline;
}

/// First and last addresses of three regions of a device's memory. They limit nothing.
struct DeviceFamily {
    std::uint32_t id;
    std::uint32_t regionAStart;
    std::uint32_t regionAEnd;
    std::uint32_t regionBStart;
    std::uint32_t regionBEnd;
    std::uint32_t codeStart;
    std::uint32_t codeEnd;
};
static_assert(sizeof(DeviceFamily) == 7 * sizeof(std::uint32_t));

/// The first row serves every family without a row of its own.
inline constexpr std::array familyTable = {
    DeviceFamily{0, 0x0200, 0x05FF, 0x1000, 0x10FF, 0x3100, 0xFFFF},
    DeviceFamily{1, 0x1100, 0x30FF, 0x1000, 0x10FF, 0x3100, 0x19FFF},
    DeviceFamily{2, 0x1100, 0x30FF, 0x1000, 0x10FF, 0x3100, 0x1FFFF},
    DeviceFamily{3, 0x0200, 0x05FF, 0x1000, 0x10FF, 0x8000, 0xFFFF},
};

constexpr const DeviceFamily& findFamily(std::uint32_t id)
{
    const auto row = std::ranges::find(familyTable, id, &DeviceFamily::id);
    return row == familyTable.end() ? familyTable.front() : *row;
}

/// The family that a device belongs to.
struct DeviceId {
    std::uint16_t device;
    std::uint32_t family;
};

inline constexpr std::array deviceFamilies = {
    DeviceId{0x0300, 2},
    DeviceId{0x0301, 2},
    DeviceId{0x0302, 2},
    DeviceId{0x0303, 2},
};

/// The family of a device; 0 for one that `deviceFamilies` does not hold.
constexpr std::uint32_t familyOf(std::uint16_t device)
{
    const auto row = std::ranges::find(deviceFamilies, device, &DeviceId::device);
    return row == deviceFamilies.end() ? 0 : row->family;
}
