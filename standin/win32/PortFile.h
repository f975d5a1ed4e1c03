#pragma once

#include "standin/win32/Kernel.h"

#include <chrono>
#include <optional>
#include <thread>

namespace win32
{

// The state of a transfer, as NTSTATUS in OVERLAPPED::Internal.
inline constexpr ULONG_PTR statusSuccess = 0;
inline constexpr ULONG_PTR statusPending = 0x103;
inline constexpr ULONG_PTR statusCancelled = 0xC0000120;

/// An open serial port and its driver, which moves the bytes of the pending transfers between their buffers and the
/// terminal, at the pace of the line, until they are complete, their total time-out has passed, they are cancelled or
/// the line has hung up. It has no thread: it works while somebody waits for an event or asks for a result.
///
/// All functions are called with the lock of the layer held.
class PortFile : public KernelObject
{
public:
    using Clock = std::chrono::steady_clock;

    /// @param openTerminal in raw mode and non-blocking
    PortFile(PortDevice& portDevice, FileDescriptor openTerminal);
    PortFile(const PortFile&) = delete;
    PortFile& operator=(const PortFile&) = delete;
    ~PortFile() override;

    /// Starts a transfer. The overlapped structure and the buffer stay in use until it has ended.
    /// @return the result as GetLastError gives it: ERROR_SUCCESS when it is done at once, ERROR_IO_PENDING when the
    /// driver goes on with it, else the reason of a failure
    DWORD startRead(OVERLAPPED& overlapped, BYTE* buffer, DWORD size);
    DWORD startWrite(OVERLAPPED& overlapped, const BYTE* buffer, DWORD size);

    /// Asks the driver to end what any thread has started. Until it has, the buffers are in use.
    void cancel(bool reads, bool writes);
    /// The same for what the calling thread has started.
    void cancelOwn();

    /// Moves the bytes that can be moved now, and ends the transfers that are over.
    void advance();

    /// When to call `advance` again: when there is input, or at this time.
    Clock::time_point nextTime() const;
    /// @return -1 when no read is pending
    int inputDescriptor() const { return read ? terminal.get() : -1; }

    bool isBusy() const { return read || write; }
    /// Whether the line has hung up, as it does when an adapter is pulled out.
    bool isDead() const;

    void dropInput();
    DWORD inputCount() const;

    PortDevice& device;

private:
    /// A transfer under way. A write does not change its buffer.
    struct Transfer {
        OVERLAPPED& overlapped;
        BYTE* buffer;
        DWORD size;
        Clock::time_point start;
        Clock::time_point end;
        std::thread::id issuer = std::this_thread::get_id();
        DWORD moved = 0;
        bool isCancelled = false;
    };

    DWORD begin(std::optional<Transfer>& transfer, OVERLAPPED& overlapped, BYTE* buffer, DWORD size, DWORD multiplier,
        DWORD constant);
    static void finish(std::optional<Transfer>& transfer, ULONG_PTR status);
    void moveInput();
    void moveOutput();
    DWORD bytesDue(Clock::time_point now) const;
    std::chrono::nanoseconds characterTime() const;

    FileDescriptor terminal;
    std::optional<Transfer> read;
    std::optional<Transfer> write;
};

/// Calls `advance` on all open ports.
/// @return those with transfers under way
std::vector<std::shared_ptr<PortFile>> advancePorts();

} // namespace win32
