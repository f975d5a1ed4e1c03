#include "standin/win32/PortFile.h"

#include <algorithm>
#include <utility>

#include <poll.h>
#include <sys/ioctl.h>
#include <termios.h>

using namespace std::chrono_literals;

namespace win32
{

PortFile::PortFile(PortDevice& portDevice, FileDescriptor openTerminal)
    : device(portDevice)
    , terminal(std::move(openTerminal))
{
    device.inUse = true;
}

PortFile::~PortFile()
{
    finish(read, statusCancelled);
    finish(write, statusCancelled);
    device.inUse = false;
}

DWORD PortFile::startRead(OVERLAPPED& overlapped, BYTE* buffer, DWORD size)
{
    const COMMTIMEOUTS& limits = device.timeouts;
    const DWORD result =
        begin(read, overlapped, buffer, size, limits.ReadTotalTimeoutMultiplier, limits.ReadTotalTimeoutConstant);
    if (read && inputCount() >= size) {
        moveInput();
        return read ? ERROR_IO_PENDING : ERROR_SUCCESS;
    }
    return result;
}

DWORD PortFile::startWrite(OVERLAPPED& overlapped, const BYTE* buffer, DWORD size)
{
    const COMMTIMEOUTS& limits = device.timeouts;
    const DWORD result = begin(write, overlapped, const_cast<BYTE*>(buffer), size, limits.WriteTotalTimeoutMultiplier,
        limits.WriteTotalTimeoutConstant);
    if (write && device.completion == Completion::AtOnce) {
        moveOutput();
        return write ? ERROR_IO_PENDING : ERROR_SUCCESS;
    }
    return result;
}

DWORD PortFile::begin(std::optional<Transfer>& transfer, OVERLAPPED& overlapped, BYTE* buffer, DWORD size,
    DWORD multiplier, DWORD constant)
{
    if (isDead()) {
        return ERROR_BAD_COMMAND;
    }
    if (transfer) {
        return ERROR_BUSY;
    }
    const auto event = objectOf<Event>(overlapped.hEvent);
    if (!event) {
        return ERROR_INVALID_HANDLE;
    }
    event->reset();
    overlapped.Internal = statusPending;
    // Two zeros stand for no time-out.
    const std::chrono::milliseconds limit(std::uint64_t{multiplier} * size + constant);
    const Clock::time_point now = Clock::now();
    transfer.emplace(Transfer{overlapped, buffer, size, now, limit == 0ms ? Clock::time_point::max() : now + limit});
    if (device.completion == Completion::Nothing) {
        finish(transfer, statusSuccess);
        return ERROR_SUCCESS;
    }
    return ERROR_IO_PENDING;
}

void PortFile::finish(std::optional<Transfer>& transfer, ULONG_PTR status)
{
    if (!transfer) {
        return;
    }
    transfer->overlapped.Internal = status;
    // Drivers of serial ports give no count with a cancelled transfer.
    transfer->overlapped.InternalHigh = status == statusSuccess ? transfer->moved : 0;
    if (const auto event = objectOf<Event>(transfer->overlapped.hEvent)) {
        event->set();
    }
    transfer.reset();
}

void PortFile::cancel(bool reads, bool writes)
{
    if (read && reads) {
        read->isCancelled = true;
    }
    if (write && writes) {
        write->isCancelled = true;
    }
}

void PortFile::cancelOwn()
{
    const std::thread::id caller = std::this_thread::get_id();
    cancel(read && read->issuer == caller, write && write->issuer == caller);
}

void PortFile::advance()
{
    moveInput();
    moveOutput();
    const bool isCutOff = isDead();
    if (isCutOff || (read && read->isCancelled)) {
        finish(read, statusCancelled);
    }
    if (isCutOff || (write && write->isCancelled)) {
        finish(write, statusCancelled);
    }
}

void PortFile::moveInput()
{
    if (!read) {
        return;
    }
    const ssize_t count = ::read(terminal.get(), read->buffer + read->moved, read->size - read->moved);
    read->moved += static_cast<DWORD>(std::max<ssize_t>(count, 0));
    if (read->moved == read->size || Clock::now() >= read->end) {
        finish(read, statusSuccess);
    }
}

void PortFile::moveOutput()
{
    if (!write) {
        return;
    }
    const Clock::time_point now = Clock::now();
    const DWORD due = bytesDue(now) - write->moved;
    const ssize_t count = due > 0 ? ::write(terminal.get(), write->buffer + write->moved, due) : 0;
    write->moved += static_cast<DWORD>(std::max<ssize_t>(count, 0));
    if (write->moved == write->size || now >= write->end) {
        finish(write, statusSuccess);
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

/// A start bit, the data, the parity if there is one, and the stop bits.
std::chrono::nanoseconds PortFile::characterTime() const
{
    const DCB& line = device.state;
    const int stopHalves = line.StopBits == ONESTOPBIT ? 2 : line.StopBits == ONE5STOPBITS ? 3 : 4;
    const int halfBits = 2 * (1 + line.ByteSize + (line.Parity == NOPARITY ? 0 : 1)) + stopHalves;
    return std::chrono::nanoseconds(std::int64_t{halfBits} * 500'000'000 / line.BaudRate);
}

PortFile::Clock::time_point PortFile::nextTime() const
{
    Clock::time_point next = read ? read->end : Clock::time_point::max();
    if (!write) {
        return next;
    }
    // On a fast line, or with a terminal that is full, the sleeps would be shorter than the machine can keep.
    const Clock::time_point nextCharacter = write->start + (write->moved + 1) * characterTime();
    return std::min({next, write->end, std::max<Clock::time_point>(nextCharacter, Clock::now() + 500us)});
}

bool PortFile::isDead() const
{
    pollfd polled = {terminal.get(), 0, 0};
    return poll(&polled, 1, 0) > 0;
}

void PortFile::dropInput()
{
    tcflush(terminal.get(), TCIFLUSH);
}

DWORD PortFile::inputCount() const
{
    int count = 0;
    return ioctl(terminal.get(), FIONREAD, &count) == 0 ? static_cast<DWORD>(count) : 0;
}

std::vector<std::shared_ptr<PortFile>> advancePorts()
{
    std::vector<std::shared_ptr<PortFile>> busy;
    for (const auto& [handle, object] : kernel().handles) {
        const auto port = std::dynamic_pointer_cast<PortFile>(object);
        if (port) {
            port->advance();
        }
        if (port && port->isBusy()) {
            busy.push_back(port);
        }
    }
    return busy;
}

} // namespace win32
