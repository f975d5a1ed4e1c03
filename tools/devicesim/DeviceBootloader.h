#pragma once

#include "tools/devicesim/DeviceMemory.h"
#include "tools/devicesim/RequestParser.h"
#include "tools/devicesim/WireFormat.h"

#include <cstdint>
#include <span>
#include <vector>

namespace devicesim
{

/// What the version request tells of a device.
struct DeviceIdentity {
    /// Version words: 4 bits major, 6 bits minor, 6 bits patch, from the top.
    std::uint16_t bootloaderVersion = 0x1042;
    std::uint16_t firmwareVersion = 0x2083;
    std::uint16_t deviceId = 0x0300;
};

/// Carries out requests on a memory.
class DeviceBootloader
{
public:
    DeviceBootloader(const DeviceIdentity& deviceIdentity, DeviceMemory& deviceMemory);

    /// Carries out an intact request.
    /// @return the whole reply; never empty. What reaches past the end of the memory, a read of more than
    /// `largestReadCount` words and an erase without its fixed parameters are refused and change nothing.
    std::vector<std::uint8_t> execute(const Request& request);

    static std::vector<std::uint8_t> statusReply(Status status) { return {static_cast<std::uint8_t>(status)}; }

private:
    std::vector<std::uint8_t> erase(const Request& request);
    std::vector<std::uint8_t> write(const Request& request);
    std::vector<std::uint8_t> read(const Request& request) const;
    std::vector<std::uint8_t> checkBlank(const Request& request) const;
    std::vector<std::uint8_t> version(const Request& request) const;

    DeviceIdentity identity;
    DeviceMemory& memory;
};

} // namespace devicesim
