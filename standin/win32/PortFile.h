#pragma once

#include "standin/win32/Event.h"
#include "standin/win32/PortDevice.h"

#include <chrono>
#include <mutex>
#include <optional>
#include <string>
#include <thread>

#include <windows.h>

namespace win32
{

/// An open serial port and its driver, a thread that moves the bytes of the pending transfers between their buffers and
/// the terminal, at the pace of the line, until they are done, their total time-out has passed or they are cancelled.
///
/// All functions but the constructor and the destructor are called with the layer's lock held.
class PortFile : public KernelObject
{
public:
    /// Takes over `fileDescriptor`, a terminal in raw mode and non-blocking.
    PortFile(std::u16string portName, PortDevice& portDevice, int fileDescriptor);
    PortFile(const PortFile&) = delete;
    PortFile& operator=(const PortFile&) = delete;

    /// Ends what is under way, and the driver; to be called without the layer's lock.
    ~PortFile() override;

    std::string name() const override;

    /// Starts a transfer. The overlapped structure and the buffer stay in use until it has ended.
    /// @return the result as GetLastError gives it: ERROR_SUCCESS when it is done at once, ERROR_IO_PENDING when the
    /// driver goes on with it, else the reason of a failure.
    DWORD startRead(OVERLAPPED& overlapped, BYTE* buffer, DWORD size);
    DWORD startWrite(OVERLAPPED& overlapped, const BYTE* buffer, DWORD size);

    /// Asks the driver to end what the calling thread has started, and does not wait for that.
    void cancelOwn();
    /// The same for what any thread has started.
    void cancelRead();
    void cancelWrite();

    /// Whether the line has hung up, as it does when an adapter is pulled out.
    bool isDead() const;

    void dropInput();
    DWORD inputCount() const;
    DWORD unsentCount() const;

    PortDevice& device;

private:
    using Clock = std::chrono::steady_clock;

    /// A transfer under way; `Byte` is const for a write.
    template <typename Byte>
    struct Transfer {
        OVERLAPPED& overlapped;
        Byte* buffer;
        DWORD size = 0;
        std::thread::id issuer;
        Clock::time_point start;
        std::optional<Clock::time_point> end;
        DWORD moved = 0;
        bool isCancelled = false;
    };
    using Read = Transfer<BYTE>;
    using Write = Transfer<const BYTE>;

    template <typename Byte>
    DWORD begin(std::optional<Transfer<Byte>>& transfer, OVERLAPPED& overlapped, Byte* buffer, DWORD size,
        DWORD multiplier, DWORD constant);
    template <typename Byte>
    void finish(std::optional<Transfer<Byte>>& transfer, ULONG_PTR status);

    void run();
    void moveInput();
    void moveOutput();
    DWORD bytesDue(Clock::time_point now) const;
    void waitForWork(std::unique_lock<std::mutex>& lock);
    std::chrono::nanoseconds characterTime() const;
    void wake() const;

    std::u16string portName;
    int terminal;
    int wakeUp;
    bool stopping = false;
    bool hungUp = false;
    bool outputFull = false;
    std::optional<Read> read;
    std::optional<Write> write;
    std::thread driver;
};

} // namespace win32
