#include "tools/devicesim/DeviceSim.h"

#include <algorithm>
#include <array>
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

/// Time that a thread may take to wake up. Where the host waits for what is due, the thread wakes up by so much earlier
/// and polls the clock.
constexpr auto wakeUpTime = 60us;

/// At the end, a host has this much time to read the last reply, since hanging up drops what it has not read.
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

DeviceSim::DeviceSim(DeviceConfig deviceConfig)
    : config(std::move(deviceConfig))
    , stopEvent(::eventfd(0, EFD_CLOEXEC))
    , line(terminal, config.baudRate, config.echo)
    , device(config)
    , longestGap(std::max<std::chrono::nanoseconds>(shortestGapLimit, gapLimitInBytes * line.byteTime()))
{
}

DeviceSim::~DeviceSim()
{
    stop();
}

bool DeviceSim::start()
{
    if (!stopEvent.isValid()) {
        error = "no event descriptor";
        return false;
    }
    if (!open()) {
        return false;
    }
    thread = std::thread([this] { run(stopEvent.get()); });
    return true;
}

void DeviceSim::stop()
{
    if (thread.joinable()) {
        ::eventfd_write(stopEvent.get(), 1);
        thread.join();
    }
}

bool DeviceSim::open()
{
    startTime = Clock::now();
    return terminal.open(error);
}

void DeviceSim::run(int stopDescriptor)
{
    // Without this the kernel may let deadlines slip by 50 microseconds.
    ::prctl(PR_SET_TIMERSLACK, 1UL);
    while (!ended) {
        const TimePoint now = Clock::now();
        line.transfer(now);
        serve(now);
        countBytes();
        if (!ended) {
            wait(now, stopDescriptor);
        }
    }
    countBytes();
    terminal.close();
}

std::vector<std::uint8_t> DeviceSim::memory() const
{
    const std::lock_guard lock(mutex);
    return device.memory();
}

DeviceReport DeviceSim::report() const
{
    const std::lock_guard lock(mutex);
    return device.report;
}

void DeviceSim::serve(TimePoint now)
{
    while (!finishRequest(now) && !ended && receiveRequest(now)) {
    }
    ended = ended || !terminal.tidy(now);
}

bool DeviceSim::finishRequest(TimePoint now)
{
    if (pending) {
        if (now < replyDue) {
            return true;
        }
        line.send(pending->reply, replyDue);
        busyUntil = pending->reply.empty() ? replyDue : line.sentAt();
        resetDue = pending->reset;
        pending.reset();
        line.transfer(now);
    }
    if (now < busyUntil) {
        return true;
    }
    if (std::exchange(resetDue, false)) {
        finishReset();
    }
    return false;
}

bool DeviceSim::receiveRequest(TimePoint now)
{
    std::optional<Reaction> reaction;
    TimePoint arrival;
    {
        const std::lock_guard lock(mutex);
        while (!reaction) {
            const std::optional<PacedLine::Byte> byte = line.take(now);
            if (!byte) {
                abandonCutRequest(now);
                return false;
            }
            arrival = byte->due;
            reaction = device.receive(byte->value, arrival - startTime);
        }
    }
    if (config.onRequest) {
        config.onRequest(reaction->record);
    }
    if (reaction->hangUp) {
        terminal.close();
        ended = true;
        return false;
    }
    replyDue = arrival + reaction->delay;
    pending = std::move(reaction);
    return true;
}

void DeviceSim::abandonCutRequest(TimePoint now)
{
    if (device.inRequest() && !line.hasInput() && now >= line.quietSince() + longestGap) {
        device.abandonRequest();
    }
}

void DeviceSim::finishReset()
{
    {
        const std::lock_guard lock(mutex);
        ++device.report.resets;
    }
    if (config.onReset) {
        config.onReset(device.memory());
    }
    if (config.once) {
        awaitReader();
        ended = true;
    }
}

void DeviceSim::countBytes()
{
    const std::lock_guard lock(mutex);
    device.report.bytesReceived = line.bytesReceived();
    device.report.bytesSent = line.bytesSent();
    device.report.overrunBytes = line.bytesOverrun();
}

std::optional<TimePoint> DeviceSim::nextWakeUp(TimePoint now) const
{
    std::optional<TimePoint> next = terminal.nextTidy();
    const auto consider = [&next](TimePoint time) { next = std::min(next.value_or(time), time); };
    if (const std::optional<TimePoint> handover = line.nextHandover()) {
        consider(handover == line.sentAt() ? *handover - wakeUpTime : *handover);
    }
    if (pending) {
        consider(replyDue - wakeUpTime);
    } else if (busyUntil > now) {
        consider(busyUntil);
    } else if (const std::optional<TimePoint> complete = line.arrivalOf(device.missingBytes())) {
        consider(*complete - wakeUpTime);
    } else if (line.hasInput() || device.inRequest()) {
        consider(line.quietSince() + longestGap);
    }
    return next;
}

void DeviceSim::wait(TimePoint now, int stopDescriptor)
{
    const short lineEvents = line.canReceive() ? POLLIN : 0;
    std::array<pollfd, 3> sources = {
        {{terminal.descriptor(), lineEvents, 0}, {stopDescriptor, POLLIN, 0}, {terminal.closeNotifier(), POLLIN, 0}}};
    const std::optional<TimePoint> wakeUp = nextWakeUp(now);
    timespec limit = {};
    if (wakeUp) {
        limit = toTimespec(std::max<std::chrono::nanoseconds>(*wakeUp - Clock::now(), 0ns));
    }
    ::ppoll(sources.data(), sources.size(), wakeUp ? &limit : nullptr, nullptr);
    ended = sources[1].revents != 0;
}

void DeviceSim::awaitReader() const
{
    for (auto waited = 0ms; waited < readerPatience; waited += readerPeriod) {
        std::this_thread::sleep_for(readerPeriod);
        if (!terminal.hostInputWaits()) {
            return;
        }
    }
}

} // namespace devicesim
