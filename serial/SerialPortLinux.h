#pragma once

#include "serial/LineWaiter.h"
#include "serial/SerialPort.h"
#include "serial/TerminalLine.h"

/// The serial port of Linux: a terminal device, opened by its path or by its name in /dev.
///
/// A line that has hung up, because its adapter was pulled out, looks like silence: `read` and `write` wait out their
/// limit and return, and `errorString` tells why. No wait uses the processor.
class SerialPortLinux final : public SerialPort
{
public:
    explicit SerialPortLinux(const PortSettings& portSettings);

    bool open() override;
    void close() override;
    bool isOpen() const override;

    /// May also come while another thread is in `open` or `close`.
    void cancel() override;

    std::wstring errorString() const override;
    bool purge(bool receive, bool transmit) override;
    std::uint32_t bytesAvailable() const override;

    /// Ends when the driver has nothing left to send and the time that the bytes take on the line has passed, to within
    /// the precision of the system's timers. What has not left at the limit or at a cancel is dropped.
    std::size_t write(const std::uint8_t* buffer, std::size_t size) override;

    std::size_t read(std::uint8_t* buffer, std::size_t size) override;
    bool applySettings() override;
    bool applyTimeouts() override;

private:
    using Clock = LineWaiter::Clock;

    enum class Transfer { Complete, TimedOut, Cancelled, HungUp };

    Transfer handOver(
        const std::uint8_t* buffer, std::size_t size, Clock::time_point deadline, std::size_t& handedOver);
    Transfer drain(Clock::time_point expected, Clock::time_point deadline);
    std::size_t bytesThatLeft(std::size_t handedOver, Clock::duration sinceStart) const;

    /// @return whether `code`, an errno value, is 0; if not, it is kept as the reason of the failure.
    bool succeeded(int code);
    void fail(int code);

    LineWaiter waiter;
    /// The open line; none when the port is closed.
    std::unique_ptr<TerminalLine> line;
    std::wstring lastError;
};
