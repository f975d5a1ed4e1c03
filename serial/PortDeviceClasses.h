#pragma once

#include "serial/DeviceApi.h"

#include <array>
#include <cstdint>

/// A device class that holds serial ports, and how SetupDiGetClassDevsW lists its devices.
struct PortDeviceClass {
    DeviceApi::Guid guid;
    std::uint32_t flags;
};

inline constexpr std::uint32_t presentDevices = 0x02;   // DIGCF_PRESENT
inline constexpr std::uint32_t deviceInterfaces = 0x10; // DIGCF_DEVICEINTERFACE

/// The classes in the order in which they are searched. The GUIDs are those of the Windows documentation on device
/// setup classes and on device interface classes.
inline constexpr std::array<PortDeviceClass, 4> portDeviceClasses = {{
    // GUID_DEVCLASS_PORTS
    {{0x4D36E978, 0xE325, 0x11CE, {0xBF, 0xC1, 0x08, 0x00, 0x2B, 0xE1, 0x03, 0x18}}, presentDevices},
    // GUID_DEVCLASS_MODEM
    {{0x4D36E96D, 0xE325, 0x11CE, {0xBF, 0xC1, 0x08, 0x00, 0x2B, 0xE1, 0x03, 0x18}}, presentDevices},
    // GUID_DEVINTERFACE_COMPORT
    {{0x86E0D1E0, 0x8089, 0x11D0, {0x9C, 0xE4, 0x08, 0x00, 0x3E, 0x30, 0x1F, 0x73}}, presentDevices | deviceInterfaces},
    // GUID_DEVINTERFACE_MODEM
    {{0x2C7089AA, 0x2E0E, 0x11D1, {0xB1, 0x14, 0x00, 0xC0, 0x4F, 0xC2, 0xAA, 0xE4}}, presentDevices | deviceInterfaces},
}};
