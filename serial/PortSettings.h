#pragma once

#include <cstdint>
#include <string>

enum class PortParity : std::uint32_t { None = 0, Odd = 1, Even = 2, Mark = 3, Space = 4 };

enum class PortStopBits : std::uint32_t { One = 0, OneAndHalf = 1, Two = 2 };

/// The line settings from which a port is made. There is no flow control of any kind.
struct PortSettings {
    /// Name of the port as the user picked it.
    std::string portName;
    /// Bits per second.
    std::uint32_t baudRate = 9600;
    /// Data bits of a character, 5 to 8.
    std::uint8_t dataBits = 8;
    PortParity parity = PortParity::None;
    PortStopBits stopBits = PortStopBits::One;
    /// DTR is held active while the port is open; false holds it inactive.
    bool dtrEnabled = false;
    /// RTS is held active while the port is open; false holds it inactive.
    bool rtsEnabled = false;
    /// Limit of one `write` call, in milliseconds.
    std::uint32_t writeTimeoutMs = 500;
    /// Limit of one `read` call, in milliseconds.
    std::uint32_t readTimeoutMs = 100;
};
