#pragma once

#include "serial/DeviceApi.h"
#include "serial/PortEnumerator.h"

#include <cstdint>
#include <string>
#include <vector>

// How the list of ports is made on Windows. Nothing here fails: what can't be read is left out or empty. Every set and
// key that is opened is closed again.

/// The ports of the machine: first the devices of each of the `portDeviceClasses`, then what the system's map of serial
/// ports names beyond them. Where the devices of a class can't be listed at all, the list ends there.
std::vector<PortInfo> scanPorts(DeviceApi& api);

/// The name of a device's port, out of its values "PortName" and "PortNumber"; empty when neither gives one.
std::u16string readPortName(DeviceApi& api, DeviceApi::DeviceSet set, const DeviceApi::Device& device);

/// A property of a device as text; empty when it can't be read.
std::u16string readDeviceProperty(
    DeviceApi& api, DeviceApi::DeviceSet set, const DeviceApi::Device& device, std::uint32_t property);

/// The names in the system's map of serial ports, HARDWARE\DEVICEMAP\SERIALCOMM, in its order.
std::vector<std::wstring> readSerialCommPorts(DeviceApi& api);

/// The serial number in the identifier of a device or in that of the nearest parent that has one; empty when there is
/// none.
std::u16string findSerialNumber(DeviceApi& api, std::u16string identifier, DeviceApi::Instance instance);
