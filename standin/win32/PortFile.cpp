#include "standin/win32/PortFile.h"

#include "standin/win32/ApiCall.h"
#include "standin/win32/Status.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <utility>

#include <poll.h>
#include <sys/eventfd.h>
#include <sys/ioctl.h>
#include <termios.h>
#include <unistd.h>

namespace win32
{

PortFile::PortFile(std::u16string port, PortDevice& portDevice, int fileDescriptor)
    : device(portDevice)
    , portName(std::move(port))
    , terminal(fileDescriptor)
    , wakeUp(eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC))
    , driver([this] { run(); })
{
}

PortFile::~PortFile()
{
    {
        const std::lock_guard lock(kernel().mutex);
        stopping = true;
        wake();
    }
    driver.join();
    ::close(wakeUp);
    ::close(terminal);
    const std::lock_guard lock(kernel().mutex);
    device.inUse = false;
}

std::string PortFile::name() const
{
    return argumentText(portName.c_str());
}

DWORD PortFile::startRead(OVERLAPPED& overlapped, BYTE* buffer, DWORD size)
{
    const DWORD result = begin(read, overlapped, buffer, size, device.timeouts.ReadTotalTimeoutMultiplier,
        device.timeouts.ReadTotalTimeoutConstant);
    if (result != ERROR_IO_PENDING || inputCount() < size) {
        return result;
    }
    moveInput();
    return read ? ERROR_IO_PENDING : ERROR_SUCCESS;
}

DWORD PortFile::startWrite(OVERLAPPED& overlapped, const BYTE* buffer, DWORD size)
{
    const DWORD result = begin(write, overlapped, buffer, size, device.timeouts.WriteTotalTimeoutMultiplier,
        device.timeouts.WriteTotalTimeoutConstant);
    if (result != ERROR_IO_PENDING || device.completion != Completion::AtOnce) {
        return result;
    }
    moveOutput();
    return write ? ERROR_IO_PENDING : ERROR_SUCCESS;
}

template <typename Byte>
DWORD PortFile::begin(std::optional<Transfer<Byte>>& transfer, OVERLAPPED& overlapped, Byte* buffer, DWORD size,
    DWORD multiplier, DWORD constant)
{
    if (isDead()) {
        return ERROR_BAD_COMMAND;
    }
    if (transfer) {
        return ERROR_BUSY;
    }
    const auto event = ApiCall::object<Event>(overlapped.hEvent);
    if (!event) {
        return ERROR_INVALID_HANDLE;
    }
    const bool movesNothing = device.completion == Completion::Nothing;
    event->signalled = movesNothing;
    overlapped.Internal = movesNothing ? StatusSuccess : StatusPending;
    overlapped.InternalHigh = 0;
    if (movesNothing) {
        return ERROR_SUCCESS;
    }
    const Clock::time_point now = Clock::now();
    const std::chrono::milliseconds limit(std::uint64_t{multiplier} * size + constant);
    transfer.emplace(Transfer<Byte>{overlapped, buffer, size, std::this_thread::get_id(), now,
        limit.count() == 0 ? std::nullopt : std::optional(now + limit)});
    wake();
    return ERROR_IO_PENDING;
}

template <typename Byte>
void PortFile::finish(std::optional<Transfer<Byte>>& transfer, ULONG_PTR status)
{
    if (!transfer) {
        return;
    }
    transfer->overlapped.Internal = status;
    // As drivers of serial ports do, a cancelled transfer tells no count.
    transfer->overlapped.InternalHigh = status == StatusSuccess ? transfer->moved : 0;
    if (const auto event = kernel().handles.find<Event>(transfer->overlapped.hEvent)) {
        event->set();
    }
    transfer.reset();
}

void PortFile::cancelOwn()
{
    const std::thread::id caller = std::this_thread::get_id();
    if (read && read->issuer == caller) {
        cancelRead();
    }
    if (write && write->issuer == caller) {
        cancelWrite();
    }
}

void PortFile::cancelRead()
{
    if (read) {
        read->isCancelled = true;
        wake();
    }
}

void PortFile::cancelWrite()
{
    if (write) {
        write->isCancelled = true;
        wake();
    }
}

bool PortFile::isDead() const
{
    pollfd polled = {terminal, 0, 0};
    return poll(&polled, 1, 0) > 0;
}

void PortFile::dropInput()
{
    tcflush(terminal, TCIFLUSH);
}

DWORD PortFile::inputCount() const
{
    int count = 0;
    return ioctl(terminal, FIONREAD, &count) == 0 ? static_cast<DWORD>(count) : 0;
}

DWORD PortFile::unsentCount() const
{
    return write ? write->size - write->moved : 0;
}

void PortFile::run()
{
    std::unique_lock lock(kernel().mutex);
    while (!stopping) {
        moveInput();
        moveOutput();
        if (hungUp || (read && read->isCancelled)) {
            finish(read, StatusCancelled);
        }
        if (hungUp || (write && write->isCancelled)) {
            finish(write, StatusCancelled);
        }
        waitForWork(lock);
    }
    finish(read, StatusCancelled);
    finish(write, StatusCancelled);
}

void PortFile::moveInput()
{
    if (!read) {
        return;
    }
    const ssize_t count = ::read(terminal, read->buffer + read->moved, read->size - read->moved);
    if (count > 0) {
        read->moved += static_cast<DWORD>(count);
    } else if ((count == 0 && read->size > 0) || errno == EIO) {
        hungUp = true;
        return;
    }
    if (read->moved == read->size || (read->end && Clock::now() >= *read->end)) {
        finish(read, StatusSuccess);
    }
}

void PortFile::moveOutput()
{
    if (!write) {
        return;
    }
    const Clock::time_point now = Clock::now();
    const DWORD gone = bytesDue(now);
    outputFull = false;
    if (gone > write->moved) {
        const ssize_t count = ::write(terminal, write->buffer + write->moved, gone - write->moved);
        if (count >= 0) {
            write->moved += static_cast<DWORD>(count);
        } else if (errno == EAGAIN) {
            outputFull = true;
        } else if (errno != EINTR) {
            hungUp = true;
            return;
        }
    }
    if (write->moved == write->size || (write->end && now >= *write->end)) {
        finish(write, StatusSuccess);
    }
}

/// How many bytes of the write the driver has taken by now.
DWORD PortFile::bytesDue(Clock::time_point now) const
{
    if (device.completion == Completion::AtOnce) {
        return write->size;
    }
    return static_cast<DWORD>(std::min<std::int64_t>((now - write->start) / characterTime(), write->size));
}

/// Sleeps without the lock until a byte can be moved, a time-out has passed or `wake` is called.
void PortFile::waitForWork(std::unique_lock<std::mutex>& lock)
{
    std::optional<Clock::time_point> next;
    const auto wakeAt = [&next](Clock::time_point time) { next = next ? std::min(*next, time) : time; };
    short awaited = 0;
    if (read) {
        awaited = static_cast<short>(awaited | POLLIN);
        if (read->end) {
            wakeAt(*read->end);
        }
    }
    if (write) {
        if (outputFull) {
            awaited = static_cast<short>(awaited | POLLOUT);
        } else {
            // Several characters at once on a fast line, or the sleeps would be shorter than the machine can keep.
            wakeAt(std::max(
                write->start + (write->moved + 1) * characterTime(), Clock::now() + std::chrono::microseconds(500)));
        }
        if (write->end) {
            wakeAt(*write->end);
        }
    }
    std::array<pollfd, 2> polled = {{{wakeUp, POLLIN, 0}, {terminal, awaited, 0}}};
    timespec limit = {};
    if (next) {
        const auto left = std::max(std::chrono::nanoseconds(0), *next - Clock::now());
        limit.tv_sec = left / std::chrono::seconds(1);
        limit.tv_nsec = (left % std::chrono::seconds(1)).count();
    }
    lock.unlock();
    // A terminal that has hung up, or that no transfer waits for, would end every wait at once.
    ppoll(polled.data(), awaited == 0 ? 1 : 2, next ? &limit : nullptr, nullptr);
    eventfd_t ignored = 0;
    eventfd_read(wakeUp, &ignored);
    lock.lock();
}

/// A start bit, the data, the parity if there is one, and the stop bits.
std::chrono::nanoseconds PortFile::characterTime() const
{
    const DCB& line = device.state;
    const int stopHalves = line.StopBits == ONESTOPBIT ? 2 : line.StopBits == ONE5STOPBITS ? 3 : 4;
    const int halfBits = 2 * (1 + line.ByteSize + (line.Parity == NOPARITY ? 0 : 1)) + stopHalves;
    return std::chrono::nanoseconds(std::int64_t{halfBits} * 500'000'000 / line.BaudRate);
}

void PortFile::wake() const
{
    eventfd_write(wakeUp, 1);
}

} // namespace win32
