#include "serial/SerialPortPosix.h"

#include "serial/PortErrorText.h"

#include <algorithm>
#include <cerrno>

#include <poll.h>
#include <unistd.h>

using namespace std::chrono_literals;

namespace
{

// Between two looks at an output queue that does not get shorter.
constexpr auto shortestNap = 100us;
constexpr auto longestNap = 10ms;

std::string devicePath(const std::string& portName)
{
    const bool isBareName = !portName.empty() && portName.find('/') == std::string::npos;
    return isBareName ? "/dev/" + portName : portName;
}

bool isTemporary(int code)
{
    return code == EAGAIN || code == EWOULDBLOCK || code == EINTR;
}

} // namespace

SerialPortPosix::SerialPortPosix(const PortSettings& portSettings)
    : SerialPort(portSettings)
{
}

bool SerialPortPosix::open()
{
    close();
    waiter.liftCancel();
    if (!succeeded(waiter.error())) {
        return false;
    }
    auto opened = std::make_unique<TerminalLine>();
    if (!succeeded(opened->open(devicePath(settings.portName), settings))) {
        return false;
    }
    line = std::move(opened);
    return applyTimeouts();
}

void SerialPortPosix::close()
{
    line.reset();
}

bool SerialPortPosix::isOpen() const
{
    return line != nullptr;
}

void SerialPortPosix::cancel()
{
    waiter.cancel();
}

std::wstring SerialPortPosix::errorString() const
{
    return lastError;
}

bool SerialPortPosix::purge(bool receive, bool transmit)
{
    return !line || succeeded(line->discard(receive, transmit));
}

std::uint32_t SerialPortPosix::bytesAvailable() const
{
    return line ? static_cast<std::uint32_t>(line->receivedBytes().value_or(0)) : 0;
}

std::size_t SerialPortPosix::write(const std::uint8_t* buffer, std::size_t size)
{
    if (buffer == nullptr || size == 0) {
        return 0;
    }
    if (!line) {
        succeeded(EBADF);
        return 0;
    }
    // Every write has to wait, be it for the time on the line.
    if (waiter.isCancelled()) {
        return 0;
    }

    const auto start = Clock::now();
    const auto deadline = start + std::chrono::milliseconds(settings.writeTimeoutMs);
    std::size_t handedOver = 0;
    Transfer transfer = handOver(buffer, size, deadline, handedOver);
    if (transfer == Transfer::Complete) {
        transfer = awaitDeparture(start + line->transmissionTime(size), deadline);
    }

    switch (transfer) {
    case Transfer::Complete:
        return size;
    case Transfer::TimedOut: {
        const std::size_t left = bytesThatLeft(handedOver, Clock::now() - start);
        line->discard(false, true);
        return left;
    }
    case Transfer::Cancelled:
        line->discard(false, true);
        return 0;
    case Transfer::HungUp:
        succeeded(EIO);
        waiter.sleep(deadline);
        return 0;
    }
    return 0;
}

/// Gives the bytes to the driver, as fast as that takes them.
SerialPortPosix::Transfer SerialPortPosix::handOver(
    const std::uint8_t* buffer, std::size_t size, Clock::time_point deadline, std::size_t& handedOver)
{
    for (;;) {
        const ssize_t count = ::write(line->descriptor(), buffer + handedOver, size - handedOver);
        if (count == 0 || (count < 0 && !isTemporary(errno))) {
            return Transfer::HungUp;
        }
        handedOver += static_cast<std::size_t>(std::max<ssize_t>(count, 0));
        if (handedOver == size) {
            return Transfer::Complete;
        }
        switch (waiter.wait(line->descriptor(), POLLOUT, deadline)) {
        case LineWaiter::Wake::Line:
            break;
        case LineWaiter::Wake::Cancel:
            return Transfer::Cancelled;
        case LineWaiter::Wake::Deadline:
            return Transfer::TimedOut;
        }
    }
}

/// Waits until the driver has nothing left to send, but at least until the `expected` time: a driver cannot tell what
/// still lies in the chip or the adapter. tcdrain(3) would do neither, nor could it be cancelled.
SerialPortPosix::Transfer SerialPortPosix::awaitDeparture(Clock::time_point expected, Clock::time_point deadline)
{
    auto wakeUp = expected;
    Clock::duration nap = shortestNap;
    for (;;) {
        if (waiter.sleep(std::min(wakeUp, deadline)) == LineWaiter::Wake::Cancel) {
            return Transfer::Cancelled;
        }
        const auto unsent = line->unsentBytes();
        if (!unsent) {
            return Transfer::HungUp;
        }
        if (*unsent == 0 && expected <= deadline) {
            return Transfer::Complete;
        }
        if (wakeUp >= deadline) {
            return Transfer::TimedOut;
        }
        const Clock::duration needed = line->transmissionTime(*unsent);
        wakeUp = Clock::now() + std::max(nap, needed);
        nap = std::min<Clock::duration>(2 * nap, longestNap);
    }
}

/// As far as can be told: neither more than the driver says, nor more than the line could carry.
std::size_t SerialPortPosix::bytesThatLeft(std::size_t handedOver, Clock::duration sinceStart) const
{
    const std::size_t unsent = std::min(line->unsentBytes().value_or(handedOver), handedOver);
    return std::min(handedOver - unsent, line->capacity(sinceStart));
}

std::size_t SerialPortPosix::read(std::uint8_t* buffer, std::size_t size)
{
    if (buffer == nullptr || size == 0) {
        return 0;
    }
    if (!line) {
        succeeded(EBADF);
        return 0;
    }
    const auto deadline = Clock::now() + std::chrono::milliseconds(settings.readTimeoutMs);
    std::size_t received = 0;
    for (;;) {
        const ssize_t count = ::read(line->descriptor(), buffer + received, size - received);
        if (count == 0 || (count < 0 && !isTemporary(errno))) {
            succeeded(EIO);
            return waiter.sleep(deadline) == LineWaiter::Wake::Cancel ? 0 : received;
        }
        received += static_cast<std::size_t>(std::max<ssize_t>(count, 0));
        if (received == size) {
            return received;
        }
        switch (waiter.wait(line->descriptor(), POLLIN, deadline)) {
        case LineWaiter::Wake::Line:
            break;
        case LineWaiter::Wake::Cancel:
            return 0;
        case LineWaiter::Wake::Deadline:
            return received;
        }
    }
}

bool SerialPortPosix::applySettings()
{
    return succeeded(line ? line->apply(settings) : EBADF);
}

bool SerialPortPosix::applyTimeouts()
{
    // The limits are taken from the settings at each call.
    return succeeded(line ? 0 : EBADF);
}

bool SerialPortPosix::succeeded(int code)
{
    if (code != 0) {
        lastError = portErrorText(code, devicePath(settings.portName), settings);
    }
    return code == 0;
}
