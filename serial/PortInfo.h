#pragma once

#include <cstdint>
#include <string>
#include <vector>

/// One row of the list of serial ports.
struct PortInfo {
    /// The name by which the port is opened, exactly as the system gave it; the identity of the row.
    std::wstring portName;
    /// The system's description of the device; empty when there is none.
    std::wstring description;
    /// The system's name of the manufacturer; empty when there is none.
    std::wstring manufacturer;
    /// Empty when there is none.
    std::wstring serialNumber;
    /// 0 when there is none.
    std::uint16_t vendorId = 0;
    /// 0 when there is none.
    std::uint16_t productId = 0;
};
