#pragma once

#include "tools/devicesim/DeviceMemory.h"
#include "tools/devicesim/DeviceReport.h"
#include "tools/devicesim/UniqueFd.h"

#include <condition_variable>
#include <mutex>

namespace devicesim
{

/// What the device's thread and its observers share. All but `activity` is guarded by `mutex`.
struct DeviceState {
    explicit DeviceState(DeviceMemory deviceMemory)
        : memory(std::move(deviceMemory))
    {
    }

    mutable std::mutex mutex;
    /// Notified at each reset and at the end.
    mutable std::condition_variable changed;
    DeviceMemory memory;
    DeviceReport report;
    bool ended = false;
    /// An eventfd that is counted up with each notification of `changed`.
    UniqueFd activity;
};

} // namespace devicesim
