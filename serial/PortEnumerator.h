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

/// The serial ports of this machine, asked of the system anew at every call, no two with the same `portName`. First
/// come the ports with a device behind them, then those that only have a name. Opens no port and changes nothing on a
/// line. Whatever fails makes the list shorter or a field empty.
std::vector<PortInfo> availablePorts();
