#include "tools/devicesim/DeviceSim.h"

#include "tools/devicesim/DeviceLoop.h"
#include "tools/devicesim/DeviceState.h"
#include "tools/devicesim/PacedLine.h"
#include "tools/devicesim/UniqueFd.h"

#include <mutex>
#include <optional>
#include <thread>
#include <utility>

#include <sys/eventfd.h>

namespace devicesim
{

/// What the device's thread needs, and the thread.
class DeviceSim::Worker
{
public:
    explicit Worker(DeviceConfig deviceConfig)
        : config(std::move(deviceConfig))
        , state(DeviceMemory(config.memory, config.faults.stuckBits))
        , line(config.baudRate, config.echo)
        , stopEvent(::eventfd(0, EFD_CLOEXEC))
    {
        state.activity = UniqueFd(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK));
    }

    const DeviceConfig config;
    DeviceState state;
    PacedLine line;
    UniqueFd stopEvent;
    std::string portName;
    std::string error;
    std::optional<DeviceLoop> loop;
    std::thread thread;
};

DeviceSim::DeviceSim(DeviceConfig deviceConfig)
    : worker(std::make_unique<Worker>(std::move(deviceConfig)))
{
}

DeviceSim::~DeviceSim()
{
    stop();
}

bool DeviceSim::start()
{
    Worker& own = *worker;
    if (!own.stopEvent.isValid() || !own.state.activity.isValid()) {
        own.error = "no event descriptor";
        return false;
    }
    if (!own.line.open(own.error)) {
        return false;
    }
    own.portName = own.line.pseudoTerminal().path();
    own.loop.emplace(own.config, own.state, own.line, own.stopEvent.get());
    own.thread = std::thread([&loop = *own.loop] { loop.run(); });
    return true;
}

void DeviceSim::stop()
{
    if (worker->thread.joinable()) {
        ::eventfd_write(worker->stopEvent.get(), 1);
        worker->thread.join();
    }
}

std::string DeviceSim::portName() const
{
    return worker->portName;
}

std::string DeviceSim::errorString() const
{
    return worker->error;
}

std::vector<std::uint8_t> DeviceSim::memory() const
{
    const std::lock_guard lock(worker->state.mutex);
    return worker->state.memory.bytes();
}

DeviceReport DeviceSim::report() const
{
    const std::lock_guard lock(worker->state.mutex);
    return worker->state.report;
}

bool DeviceSim::waitForResets(std::uint64_t count, std::chrono::milliseconds limit) const
{
    const DeviceState& state = worker->state;
    std::unique_lock lock(state.mutex);
    state.changed.wait_for(lock, limit, [&] { return state.report.resets >= count || state.ended; });
    return state.report.resets >= count;
}

bool DeviceSim::waitForEnd(std::chrono::milliseconds limit) const
{
    const DeviceState& state = worker->state;
    std::unique_lock lock(state.mutex);
    return state.changed.wait_for(lock, limit, [&] { return state.ended; });
}

int DeviceSim::activityDescriptor() const
{
    return worker->state.activity.get();
}

} // namespace devicesim
