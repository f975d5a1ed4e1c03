#include "tools/devicesim/DeviceLoop.h"

#include <algorithm>
#include <array>
#include <thread>
#include <utility>

#include <poll.h>
#include <sys/eventfd.h>
#include <sys/prctl.h>

namespace devicesim
{

namespace
{

using namespace std::chrono_literals;

/// A host that repeats an unanswered request does so after 100 ms or later.
constexpr auto shortestGapLimit = 50ms;
constexpr int gapLimitInBytes = 4;

/// What a thread may need to wake up. Where a deadline is to be met sharply, the thread is up by so much earlier and
/// looks at the clock until it has come.
constexpr auto wakeUpTime = 60us;

/// So long after a host has closed the terminal, to leave a host alone that opens it again at once.
constexpr auto tidyDelay = 100ms;

/// At the end, a host gets this much time to read the last reply, since hanging up drops what it has not read.
constexpr auto readerPatience = 500ms;
constexpr auto readerPeriod = 20ms;

timespec toTimespec(std::chrono::nanoseconds duration)
{
    const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(duration);
    timespec result = {};
    result.tv_sec = seconds.count();
    result.tv_nsec = (duration - seconds).count();
    return result;
}

} // namespace

DeviceLoop::DeviceLoop(
    const DeviceConfig& deviceConfig, DeviceState& deviceState, PacedLine& deviceLine, int stopDescriptor)
    : config(deviceConfig)
    , state(deviceState)
    , line(deviceLine)
    , stopEvent(stopDescriptor)
    , bootloader(deviceConfig.identity, deviceState.memory)
    , injector(deviceConfig.faults, deviceConfig.seed)
    , startTime(Clock::now())
    , longestGap(std::max<std::chrono::nanoseconds>(shortestGapLimit, gapLimitInBytes * deviceLine.byteTime()))
    , dirtyBlankLeft(deviceConfig.faults.dirtyBlank)
{
    hosts.start(line.pseudoTerminal().path());
}

void DeviceLoop::run()
{
    // Without this the kernel may let deadlines slip by 50 microseconds.
    ::prctl(PR_SET_TIMERSLACK, 1UL);
    while (!stopped) {
        const TimePoint now = Clock::now();
        line.transfer(now);
        work(now);
        tendTerminal(now);
        countBytes();
        if (!stopped) {
            wait(now);
        }
    }
    finish();
}

void DeviceLoop::work(TimePoint now)
{
    while (!finishRequest(now) && !stopped) {
        const std::optional<PacedLine::Byte> byte = line.take(now);
        if (!byte) {
            abandonCutRequest(now);
            return;
        }
        receive(*byte);
    }
}

bool DeviceLoop::finishRequest(TimePoint now)
{
    if (pending) {
        if (now < pending->due) {
            return true;
        }
        line.send(pending->bytes, pending->due);
        busyUntil = pending->bytes.empty() ? pending->due : line.sentAt();
        resetDue = pending->toReset;
        pending.reset();
        line.transfer(now);
    }
    if (now < busyUntil) {
        return true;
    }
    if (resetDue) {
        resetDue = false;
        countReset();
    }
    return false;
}

void DeviceLoop::receive(const PacedLine::Byte& byte)
{
    if (byte.due < startTime + config.faults.startDelay) {
        return;
    }
    if (injector.losesByte(!parser.partial() && byte.value == requestStart)) {
        const std::lock_guard lock(state.mutex);
        ++state.report.lostBytes;
        return;
    }
    if (const std::optional<Request> request = parser.feed(byte.value)) {
        handle(*request, byte.due);
    }
}

void DeviceLoop::handle(const Request& request, TimePoint arrival)
{
    if (!request.intact) {
        // It may have been meant for another command, so the device keeps silent, and the host asks again.
        const std::lock_guard lock(state.mutex);
        ++state.report.wrongChecksums;
        return;
    }
    RequestRecord entry;
    entry.time = std::chrono::duration_cast<std::chrono::microseconds>(arrival - startTime);
    entry.command = static_cast<std::uint8_t>(request.command);
    entry.address = request.address;
    entry.count = request.count;
    if (hangUpIsDue(request.command)) {
        hangUp(entry);
        return;
    }
    PendingReply reply;
    reply.bytes = carryOut(request, entry);
    entry.status = reply.bytes.front();
    reply.due = arrival + timeFor(request, entry.status);
    reply.toReset = request.command == Command::Reset && entry.status == static_cast<std::uint8_t>(Status::Ok);
    if (injector.happens(Fault::Late)) {
        reply.due += config.lateTime;
        appendFaultName(entry.faults, "late");
    }
    injector.damage(reply.bytes, entry.faults);
    pending = std::move(reply);
    record(entry);
}

bool DeviceLoop::hangUpIsDue(Command command)
{
    const FaultPlan& faults = config.faults;
    if (requestCount > 0 || command == faults.hangupFrom.value_or(command)) {
        ++requestCount;
    }
    return requestCount > 0 && requestCount == faults.hangupAt;
}

std::vector<std::uint8_t> DeviceLoop::carryOut(const Request& request, RequestRecord& record)
{
    if (injector.happens(Fault::Refuse)) {
        appendFaultName(record.faults, "refuse");
        return DeviceBootloader::statusReply(Status::Refused);
    }
    const std::lock_guard lock(state.mutex);
    if (request.command == Command::BlankCheck && std::exchange(dirtyBlankDue, false)) {
        appendFaultName(record.faults, "dirty-blank");
        return DeviceBootloader::statusReply(Status::NotBlank);
    }
    std::vector<std::uint8_t> reply = bootloader.execute(request);
    if (request.command == Command::Erase && reply.front() == static_cast<std::uint8_t>(Status::Ok)) {
        dirtyBlankDue = std::exchange(dirtyBlankLeft, false);
    }
    return reply;
}

std::chrono::milliseconds DeviceLoop::timeFor(const Request& request, std::uint8_t status) const
{
    if (status != static_cast<std::uint8_t>(Status::Ok)) {
        return 0ms;
    }
    switch (request.command) {
    case Command::Erase:
        return config.eraseTime;
    case Command::WriteBlock:
        return config.writeTime;
    default:
        return 0ms;
    }
}

void DeviceLoop::abandonCutRequest(TimePoint now)
{
    if (!parser.partial() || line.hasInput() || now < line.quietSince() + longestGap) {
        return;
    }
    parser.abandon();
    const std::lock_guard lock(state.mutex);
    ++state.report.abandonedRequests;
}

void DeviceLoop::hangUp(RequestRecord& record)
{
    record.faults = "hangup";
    line.pseudoTerminal().close();
    stopped = true;
    {
        const std::lock_guard lock(state.mutex);
        state.report.hungUp = true;
    }
    this->record(record);
}

void DeviceLoop::record(const RequestRecord& request)
{
    {
        const std::lock_guard lock(state.mutex);
        state.report.add(request);
    }
    if (config.onRequest) {
        config.onRequest(request);
    }
}

void DeviceLoop::countReset()
{
    {
        const std::lock_guard lock(state.mutex);
        ++state.report.resets;
    }
    state.changed.notify_all();
    ::eventfd_write(state.activity.get(), 1);
    if (config.once) {
        awaitReader();
        stopped = true;
    }
}

void DeviceLoop::countBytes()
{
    const std::lock_guard lock(state.mutex);
    state.report.bytesReceived = line.bytesReceived();
    state.report.bytesSent = line.bytesSent();
    state.report.overrunBytes = line.bytesOverrun();
}

void DeviceLoop::tendTerminal(TimePoint now)
{
    if (stopped) {
        return;
    }
    if (hosts.sawClose()) {
        tidyAt = now + tidyDelay;
    }
    if (tidyAt && *tidyAt <= now) {
        tidyAt.reset();
        stopped = !line.pseudoTerminal().tidyHostEnd();
        // That has closed it too.
        hosts.sawClose();
    }
}

std::optional<DeviceLoop::Deadline> DeviceLoop::nextDeadline(TimePoint now) const
{
    std::optional<Deadline> next;
    const auto consider = [&next](std::optional<TimePoint> time, bool sharp) {
        if (time && (!next || *time < next->time)) {
            next = Deadline{*time, sharp};
        }
    };
    consider(tidyAt, false);
    const std::optional<TimePoint> handover = line.nextHandover();
    consider(handover, handover == line.sentAt());
    if (pending) {
        consider(pending->due, true);
    } else if (busyUntil > now) {
        consider(busyUntil, false);
    } else if (const std::optional<TimePoint> complete = line.arrivalOf(parser.missing())) {
        consider(complete, true);
    } else if (line.hasInput() || parser.partial()) {
        consider(line.quietSince() + longestGap, false);
    }
    return next;
}

void DeviceLoop::wait(TimePoint now)
{
    const short lineEvents = line.canReceive() ? POLLIN : 0;
    std::array<pollfd, 3> sources = {
        {{line.pseudoTerminal().descriptor(), lineEvents, 0}, {stopEvent, POLLIN, 0}, {hosts.descriptor(), POLLIN, 0}}};
    const std::optional<Deadline> deadline = nextDeadline(now);
    timespec limit = {};
    if (deadline) {
        const TimePoint wakeTime = deadline->sharp ? deadline->time - wakeUpTime : deadline->time;
        limit = toTimespec(std::max<std::chrono::nanoseconds>(wakeTime - Clock::now(), 0ns));
    }
    ::ppoll(sources.data(), sources.size(), deadline ? &limit : nullptr, nullptr);
    stopped = sources[1].revents != 0;
}

void DeviceLoop::awaitReader()
{
    for (auto waited = 0ms; waited < readerPatience; waited += readerPeriod) {
        std::this_thread::sleep_for(readerPeriod);
        if (!line.pseudoTerminal().hostInputWaits()) {
            return;
        }
    }
}

void DeviceLoop::finish()
{
    countBytes();
    line.pseudoTerminal().close();
    {
        const std::lock_guard lock(state.mutex);
        state.ended = true;
    }
    state.changed.notify_all();
    ::eventfd_write(state.activity.get(), 1);
}

} // namespace devicesim
