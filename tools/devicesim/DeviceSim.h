#pragma once

#include "support/FileDescriptor.h"
#include "tools/devicesim/Device.h"
#include "tools/devicesim/PacedLine.h"
#include "tools/devicesim/PseudoTerminal.h"

#include <chrono>
#include <cstdint>
#include <functional>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

namespace devicesim
{

/// What a device on a line is like.
struct DeviceConfig : DeviceTraits {
    /// Bits per second of the line, at least 50; 0: the line takes no time.
    std::uint32_t baudRate = 0;
    /// The line sends every byte back that it brings to the device.
    bool echo = false;
    /// The device goes off the line after its first reset.
    bool once = false;
    /// Called with every request once its reply is decided, on the thread that runs the device.
    std::function<void(const RequestRecord&)> onRequest;
    /// Called with the memory at every reset once its reply has left, on the same thread.
    std::function<void(const std::vector<std::uint8_t>&)> onReset;
};

/// A simulated device on a pseudo-terminal: takes requests off the line one after the other, and answers them.
///
/// It runs on a thread of its own (`start`, `stop`) or on one of the caller's (`open`, `run`). All other operations may
/// be called from any thread.
class DeviceSim
{
public:
    explicit DeviceSim(DeviceConfig deviceConfig = {});
    DeviceSim(const DeviceSim&) = delete;
    DeviceSim& operator=(const DeviceSim&) = delete;

    /// Stops the device.
    ~DeviceSim();

    /// Puts the device on its line and serves that on a thread of its own. Called once, and not with `open` or `run`.
    /// @return false on failure; `errorString` then tells why.
    bool start();

    /// Takes the started device off the line, which hangs up for a host that has it open. Does nothing if the device
    /// has ended by itself or was never started. Called from one thread at a time.
    void stop();

    /// Puts the device on its line; its time begins. Called once.
    /// @return false on failure; `errorString` then tells why.
    bool open();

    /// Serves the open line until it hangs up, or the device has been reset and runs only once; then takes the device
    /// off the line.
    /// @param stopDescriptor ends it too by becoming readable.
    void run(int stopDescriptor);

    /// The terminal that a host opens, for example "/dev/pts/3"; empty before `open`.
    std::string portName() const { return terminal.path(); }

    /// Why `start` or `open` failed.
    std::string errorString() const { return error; }

    /// A copy of the 64 KiB of memory as they are now.
    std::vector<std::uint8_t> memory() const;

    /// A copy of what was seen so far.
    DeviceReport report() const;

private:
    void serve(TimePoint now);
    /// @return whether the device is still busy with the request before.
    bool finishRequest(TimePoint now);
    /// Takes what has arrived by `now`, up to the end of a request.
    /// @return whether there is a request to answer.
    bool receiveRequest(TimePoint now);
    /// The caller holds the mutex.
    void abandonCutRequest(TimePoint now);
    void finishReset();
    void countBytes();
    std::optional<TimePoint> nextWakeUp(TimePoint now) const;
    /// @param now as `serve` had it, so that nothing falls between the two.
    void wait(TimePoint now, int stopDescriptor);
    void awaitReader() const;

    const DeviceConfig config;
    std::string error;
    FileDescriptor stopEvent;
    PseudoTerminal terminal;
    PacedLine line;
    /// Guards the device for the observers; only the thread of `run` changes it.
    mutable std::mutex mutex;
    Device device;
    TimePoint startTime;
    /// Silence of this length within a request means that the rest is lost.
    std::chrono::nanoseconds longestGap;
    /// The request whose reply is not yet on the line.
    std::optional<Reaction> pending;
    TimePoint replyDue;
    /// The last reply is leaving until then.
    TimePoint busyUntil;
    bool resetDue = false;
    bool ended = false;
    std::thread thread;
};

} // namespace devicesim
