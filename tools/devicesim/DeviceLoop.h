#pragma once

#include "tools/devicesim/DeviceBootloader.h"
#include "tools/devicesim/DeviceConfig.h"
#include "tools/devicesim/DeviceState.h"
#include "tools/devicesim/FaultInjector.h"
#include "tools/devicesim/HostWatch.h"
#include "tools/devicesim/PacedLine.h"
#include "tools/devicesim/RequestParser.h"

#include <chrono>
#include <cstdint>
#include <optional>
#include <vector>

namespace devicesim
{

/// The device at work, on a thread of its own: takes requests off the line one after the other, and answers them.
class DeviceLoop
{
public:
    /// @param deviceLine is open.
    /// @param stopDescriptor becomes readable when the device is to stop.
    /// All of them outlive the loop.
    DeviceLoop(const DeviceConfig& deviceConfig, DeviceState& deviceState, PacedLine& deviceLine, int stopDescriptor);

    /// Runs until it is told to stop, the line has hung up, or the device has been reset and runs only once.
    void run();

private:
    /// A reply that is not yet on the line.
    struct PendingReply {
        std::vector<std::uint8_t> bytes;
        TimePoint due;
        bool toReset = false;
    };

    struct Deadline {
        TimePoint time;
        /// The host waits for what happens then.
        bool sharp = false;
    };

    void work(TimePoint now);
    /// @return whether the device is still busy with the request before.
    bool finishRequest(TimePoint now);
    void receive(const PacedLine::Byte& byte);
    void handle(const Request& request, TimePoint arrival);
    bool hangUpIsDue(Command command);
    std::vector<std::uint8_t> carryOut(const Request& request, RequestRecord& record);
    std::chrono::milliseconds timeFor(const Request& request, std::uint8_t status) const;
    void abandonCutRequest(TimePoint now);
    void hangUp(RequestRecord& record);
    void record(const RequestRecord& request);
    void countReset();
    void countBytes();
    void tendTerminal(TimePoint now);
    std::optional<Deadline> nextDeadline(TimePoint now) const;
    /// @param now as `work` had it, so that nothing falls between the two.
    void wait(TimePoint now);
    void awaitReader();
    void finish();

    const DeviceConfig& config;
    DeviceState& state;
    PacedLine& line;
    int stopEvent;
    DeviceBootloader bootloader;
    FaultInjector injector;
    RequestParser parser;
    HostWatch hosts;
    TimePoint startTime;
    /// Silence of this length within a request tells that the rest is lost.
    std::chrono::nanoseconds longestGap;
    std::optional<PendingReply> pending;
    /// The last reply is leaving until then.
    TimePoint busyUntil;
    /// When to clean up behind a host.
    std::optional<TimePoint> tidyAt;
    /// Requests from the one on that the hang-up counts from.
    std::uint64_t requestCount = 0;
    /// The fault is still to come, with the first erase; and it hits the next blank check.
    bool dirtyBlankLeft = false;
    bool dirtyBlankDue = false;
    bool resetDue = false;
    bool stopped = false;
};

} // namespace devicesim
