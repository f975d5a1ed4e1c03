#pragma once

#include "tools/devicesim/DeviceBootloader.h"
#include "tools/devicesim/DeviceReport.h"
#include "tools/devicesim/FaultPlan.h"

#include <chrono>
#include <cstdint>
#include <functional>
#include <vector>

namespace devicesim
{

/// What a simulated device is like.
struct DeviceConfig {
    DeviceIdentity identity;
    /// Bits per second of the line, at least 50; 0: the line takes no time.
    std::uint32_t baudRate = 0;
    /// The line sends every byte back that it brings to the device.
    bool echo = false;
    /// Time between the end of a request and its reply.
    std::chrono::milliseconds eraseTime{0};
    std::chrono::milliseconds writeTime{0};
    /// By how much a late reply is late. Hosts give up after some 300 to 400 ms.
    std::chrono::milliseconds lateTime{500};
    /// What the memory holds at first; the rest of its 64 KiB is 0xFF.
    std::vector<std::uint8_t> memory;
    FaultPlan faults;
    /// Of the dice that the faults are rolled with.
    std::uint64_t seed = 1;
    /// The device goes off the line after its first reset.
    bool once = false;
    /// Told of every request when its reply is decided. Called on the device's thread, which waits for it.
    std::function<void(const RequestRecord&)> onRequest;
};

} // namespace devicesim
