#pragma once

#include "tools/devicesim/DeviceConfig.h"
#include "tools/devicesim/DeviceReport.h"

#include <chrono>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace devicesim
{

/// A device with its bootloader in charge, on a pseudo-terminal, simulated on a thread of its own.
///
/// All operations may be called from any thread but the device's own, `start` and `stop` from one thread at a time.
class DeviceSim
{
public:
    explicit DeviceSim(DeviceConfig deviceConfig = {});
    DeviceSim(const DeviceSim&) = delete;
    DeviceSim& operator=(const DeviceSim&) = delete;

    /// Stops the device.
    ~DeviceSim();

    /// Puts the device on its line. Called once.
    /// @return false on failure; `errorString` then tells why.
    bool start();

    /// Takes the device off the line, which hangs up for a host that has it open. Does nothing on a device that has
    /// ended by itself or never started.
    void stop();

    /// The terminal that a host opens, for example "/dev/pts/3"; empty before `start`.
    std::string portName() const;

    /// Why `start` failed.
    std::string errorString() const;

    /// A copy of the 64 KiB of memory as they are now.
    std::vector<std::uint8_t> memory() const;

    /// A copy of what was seen so far.
    DeviceReport report() const;

    /// @return whether the device has been reset at least `count` times within `limit`. A reset counts when its reply
    /// has left.
    bool waitForResets(std::uint64_t count, std::chrono::milliseconds limit) const;

    /// @return whether the device has ended within `limit`, by `stop`, a hung up line, or its only reset.
    bool waitForEnd(std::chrono::milliseconds limit) const;

    /// For poll(2): becomes readable, as an eventfd, at each reset and at the end.
    int activityDescriptor() const;

private:
    class Worker;
    std::unique_ptr<Worker> worker;
};

} // namespace devicesim
