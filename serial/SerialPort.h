#pragma once

#include "serial/PortSettings.h"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

/// A byte pipe to a device: blocking, time-limited operations, and one `cancel` that works from another thread.
///
/// A port has one owner and is used by one thread; `cancel` alone may come from another one. Nothing throws. Each
/// operation reports by its result and keeps the reason of the last failure for `errorString`.
///
/// Rules that `read` and `write` share: a null buffer or a size of 0 returns 0 and changes nothing, not even the last
/// error. On a closed port they return 0 with the platform's "invalid handle" as the last error. The time limit is one
/// total for the call, counted from its start, with nothing added per byte. Its end is no error: the call returns what
/// has moved so far. A cancel makes the pending call return 0.
class SerialPort
{
public:
    explicit SerialPort(const PortSettings& portSettings)
        : settings(portSettings)
    {
    }
    SerialPort(const SerialPort&) = delete;
    SerialPort& operator=(const SerialPort&) = delete;
    SerialPort(SerialPort&&) = delete;
    SerialPort& operator=(SerialPort&&) = delete;

    /// Closes an open port.
    virtual ~SerialPort() = default;

    /// Opens the port of the stored settings for reading and writing, with exclusive access. An open port is closed
    /// first, a standing cancel is lifted, and both queues are empty afterwards.
    /// @return false on failure; the port is then closed and `errorString` tells why.
    virtual bool open() = 0;

    /// Ends pending I/O and closes the port. Does nothing on a closed port.
    virtual void close() = 0;

    virtual bool isOpen() const = 0;

    /// Makes a blocked `read` or `write` return at once, and every later one that would have to wait, until the next
    /// `open`. May be called from any thread, takes no lock, does not close the port.
    virtual void cancel() = 0;

    /// The last error in the platform's words.
    virtual std::wstring errorString() const = 0;

    /// Drops what is queued in the directions asked for.
    /// @return true also on a closed port and when neither direction is asked for; false on failure.
    virtual bool purge(bool receive, bool transmit) = 0;

    /// Received bytes that wait in the input queue; 0 when the port is closed or the query fails.
    virtual std::uint32_t bytesAvailable() const = 0;

    /// Sends `size` bytes and blocks until they have left, `writeTimeoutMs` has passed or a cancel comes.
    /// @return the number of bytes sent.
    virtual std::size_t write(const std::uint8_t* buffer, std::size_t size) = 0;

    /// Blocks until `size` bytes have come, `readTimeoutMs` has passed or a cancel comes.
    /// @return the number of bytes placed in the buffer.
    virtual std::size_t read(std::uint8_t* buffer, std::size_t size) = 0;

    /// Writes rate, data bits, parity, stop bits, DTR and RTS to the open port.
    /// @return false on failure, also on a closed port.
    virtual bool applySettings() = 0;

    /// Writes the two time limits to the open port.
    /// @return false on failure, also on a closed port.
    virtual bool applyTimeouts() = 0;

    /// Makes the platform's implementation, closed, with a copy of the settings.
    static std::unique_ptr<SerialPort> create(const PortSettings& portSettings);

    /// Takes effect at the next `open`.
    void setPortName(const std::string& name);

    /// Takes effect at once on an open port; a rate that the port refuses is not reported.
    void setBaudRate(std::uint32_t baudRate);

    /// Takes effect at once on an open port; a parity that the port refuses is not reported.
    void setParity(PortParity value);

    /// Time limits of one `write` and one `read` call, in milliseconds. Take effect at once on an open port.
    void setTimeouts(std::uint32_t writeMs, std::uint32_t readMs);

    /// Reads and drops up to `count` bytes with at most three reads of 32 bytes each.
    /// @return the number of bytes dropped, at most 96.
    std::size_t skip(std::size_t count);

protected:
    PortSettings settings;
};
