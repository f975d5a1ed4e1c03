#pragma once

#include "serial/SerialPort.h"

#include <atomic>
#include <chrono>

#include <windows.h>

/// The serial port of Windows, by overlapped I/O: each transfer is started and then waited for together with an event
/// that `cancel` sets, which is how another thread frees a blocked one. The driver ends a transfer when its total
/// time-out has passed, so that the wait itself needs none.
///
/// `errorString` speaks of `GetLastError` after the last call that failed. A transfer that had to wait leaves
/// ERROR_IO_PENDING there.
///
/// A limit of 0 ms is no limit: that is how the driver takes it.
class SerialPortWin final : public SerialPort
{
public:
    /// Touches nothing of the system.
    explicit SerialPortWin(const PortSettings& portSettings);
    SerialPortWin(const SerialPortWin&) = delete;
    SerialPortWin& operator=(const SerialPortWin&) = delete;
    ~SerialPortWin() override;

    bool open() override;
    void close() override;
    bool isOpen() const override;
    void cancel() override;
    std::wstring errorString() const override;
    bool purge(bool receive, bool transmit) override;
    std::uint32_t bytesAvailable() const override;
    std::size_t write(const std::uint8_t* buffer, std::size_t size) override;
    std::size_t read(std::uint8_t* buffer, std::size_t size) override;
    bool applySettings() override;
    bool applyTimeouts() override;

private:
    using Clock = std::chrono::steady_clock;

    HANDLE freshEvent(HANDLE event);
    bool makeEvents();
    bool canTransfer(const std::uint8_t* buffer, std::size_t size);
    std::size_t finish(bool isDone, OVERLAPPED& overlapped, DWORD transferred, Clock::time_point end);
    bool awaitTransfer(OVERLAPPED& overlapped, DWORD& transferred);
    void waitOutLimit(Clock::time_point end);
    bool fail();

    // The two that `cancel` reads from another thread are atomic, so that it may come while the owner opens or closes.
    std::atomic<HANDLE> handle = INVALID_HANDLE_VALUE;
    std::atomic<HANDLE> cancelEvent = nullptr;
    DWORD lastError = 0;
    OVERLAPPED readOverlapped = {};
    OVERLAPPED writeOverlapped = {};
};
