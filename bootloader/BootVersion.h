#pragma once

#include <cstdint>

/// A version as the bootloader reports it.
struct BootVersion {
    /// 0 to 15.
    std::uint8_t major = 0;
    /// 0 to 63.
    std::uint8_t minor = 0;
    /// 0 to 63.
    std::uint8_t patch = 0;

    /// Takes a version out of its word on the wire: 4 bits major, 6 bits minor, 6 bits patch, from the top.
    static constexpr BootVersion fromWord(std::uint16_t word)
    {
        return {static_cast<std::uint8_t>(word >> 12), static_cast<std::uint8_t>(word >> 6 & 0x3F),
            static_cast<std::uint8_t>(word & 0x3F)};
    }

    bool operator==(const BootVersion&) const = default;
};
