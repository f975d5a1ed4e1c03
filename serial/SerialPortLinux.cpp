#include "serial/SerialPortLinux.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>

#include <grp.h>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

using namespace std::chrono_literals;

namespace
{

// Between two looks at an output queue that does not shrink.
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

std::wstring widen(const std::string& text)
{
    std::wstring wide;
    for (const char character : text) {
        wide += static_cast<wchar_t>(static_cast<unsigned char>(character));
    }
    return wide;
}

/// Name of the group that may read and write the device; empty when there is none, or nobody's name for it.
std::string groupWithAccess(const std::string& path)
{
    constexpr mode_t groupAccess = S_IRGRP | S_IWGRP;
    struct stat status {
    };
    if (::stat(path.c_str(), &status) != 0 || (status.st_mode & groupAccess) != groupAccess) {
        return {};
    }
    std::array<char, 4096> text{};
    group entry{};
    group* found = nullptr;
    if (::getgrgid_r(status.st_gid, &entry, text.data(), text.size(), &found) != 0 || found == nullptr) {
        return {};
    }
    return found->gr_name;
}

std::wstring permissionText(const std::string& path)
{
    const std::string owners = groupWithAccess(path);
    if (owners.empty()) {
        return L"You have no permission to use this port.";
    }
    return L"You have no permission to use this port. It is open to the group " + widen(owners) +
           L": add yourself to it, log out and log in again.";
}

std::wstring settingsText(const PortSettings& settings)
{
    return L"The port does not support these line settings: " + std::to_wstring(settings.baudRate) + L" baud, " +
           std::to_wstring(settings.dataBits) + L" data bits.";
}

/// What to tell the user about the failure `code` (an errno value) of the port whose device is at `path`: why it failed
/// and what helps.
std::wstring errorText(int code, const std::string& path, const PortSettings& settings)
{
    switch (code) {
    case ENOENT:
    case ENODEV:
    case ENXIO:
    case ENOTDIR:
        return L"There is no such port. Check that the device is plugged in.";
    case EBUSY:
        return L"The port is in use by another program. Close that program and try again.";
    case EACCES:
    case EPERM:
        return permissionText(path);
    case ENOTTY:
    case EISDIR:
        return L"This is not a serial port.";
    case EIO:
        return L"The port does not answer. Check that the device is plugged in.";
    case EINVAL:
        return settingsText(settings);
    default:
        break;
    }
    // Unlike strerror() neither translated nor shared between threads.
    if (const char* description = ::strerrordesc_np(code)) {
        return widen(description);
    }
    return L"Error " + std::to_wstring(code) + L": <unknown error>";
}

} // namespace

SerialPortLinux::SerialPortLinux(const PortSettings& portSettings)
    : SerialPort(portSettings)
{
}

bool SerialPortLinux::open()
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

void SerialPortLinux::close()
{
    line.reset();
}

bool SerialPortLinux::isOpen() const
{
    return line != nullptr;
}

void SerialPortLinux::cancel()
{
    waiter.cancel();
}

std::wstring SerialPortLinux::errorString() const
{
    return lastError;
}

bool SerialPortLinux::purge(bool receive, bool transmit)
{
    return !line || succeeded(line->discard(receive, transmit));
}

std::uint32_t SerialPortLinux::bytesAvailable() const
{
    return line ? static_cast<std::uint32_t>(line->receivedBytes().value_or(0)) : 0;
}

std::size_t SerialPortLinux::write(const std::uint8_t* buffer, std::size_t size)
{
    if (buffer == nullptr || size == 0) {
        return 0;
    }
    if (!line) {
        fail(EBADF);
        return 0;
    }
    // Every write has to wait, at least for the time that it takes on the line.
    if (waiter.isCancelled()) {
        return 0;
    }

    const auto start = Clock::now();
    const auto deadline = start + std::chrono::milliseconds(settings.writeTimeoutMs);
    std::size_t handedOver = 0;
    Transfer transfer = handOver(buffer, size, deadline, handedOver);
    if (transfer == Transfer::Complete) {
        transfer = drain(start + line->transmissionTime(size), deadline);
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
        fail(EIO);
        waiter.sleep(deadline);
        return 0;
    }
    return 0;
}

/// Gives the bytes to the driver, as fast as that takes them.
SerialPortLinux::Transfer SerialPortLinux::handOver(
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
/// is still in the chip or the adapter. tcdrain(3) does not wait for that either, and it cannot be cancelled.
SerialPortLinux::Transfer SerialPortLinux::drain(Clock::time_point expected, Clock::time_point deadline)
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

/// A lower bound: no more than the driver says, and no more than the line could carry.
std::size_t SerialPortLinux::bytesThatLeft(std::size_t handedOver, Clock::duration sinceStart) const
{
    const std::size_t unsent = std::min(line->unsentBytes().value_or(handedOver), handedOver);
    return std::min(handedOver - unsent, line->capacity(sinceStart));
}

std::size_t SerialPortLinux::read(std::uint8_t* buffer, std::size_t size)
{
    if (buffer == nullptr || size == 0) {
        return 0;
    }
    if (!line) {
        fail(EBADF);
        return 0;
    }
    const auto deadline = Clock::now() + std::chrono::milliseconds(settings.readTimeoutMs);
    std::size_t received = 0;
    for (;;) {
        const ssize_t count = ::read(line->descriptor(), buffer + received, size - received);
        if (count == 0 || (count < 0 && !isTemporary(errno))) {
            fail(EIO);
            return waiter.sleep(deadline) == LineWaiter::Wake::Cancel ? 0 : received;
        }
        received += static_cast<std::size_t>(std::max<ssize_t>(count, 0));
        if (received == size) {
            return received;
        }
        // Once the first bytes are here, most of the rest is still on the line. Sleeping for that time saves a wake-up
        // for every few bytes.
        const Clock::duration rest =
            std::min<Clock::duration>(line->transmissionTime(size - received) * 7 / 8, longestNap);
        if (received > 0 && rest > shortestNap &&
            waiter.sleep(std::min(Clock::now() + rest, deadline)) == LineWaiter::Wake::Cancel) {
            return 0;
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

bool SerialPortLinux::applySettings()
{
    return succeeded(line ? line->apply(settings) : EBADF);
}

bool SerialPortLinux::applyTimeouts()
{
    // The limits are taken from the settings at each call.
    return succeeded(line ? 0 : EBADF);
}

bool SerialPortLinux::succeeded(int code)
{
    if (code != 0) {
        fail(code);
    }
    return code == 0;
}

void SerialPortLinux::fail(int code)
{
    lastError = errorText(code, devicePath(settings.portName), settings);
}
