#pragma once

#include "bootloader/BootFrame.h"
#include "bootloader/BootVersion.h"

#include <QDeadlineTimer>

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

class SerialPort;

/// The result of a blank check; `blank` says something only when `answered` is true.
struct BootAnswer {
    bool blank = false;
    bool answered = false;
};

/// The bootloader of a device as operations: each one request on the line and its reply. Nothing throws, nothing is
/// repeated here, and a caller cannot tell a reply that did not come from one that was refused or damaged.
///
/// Addresses are byte addresses, of which the low 16 bits go on the wire. All operations run on one thread; `cancel`
/// alone may come from another.
class BootloaderClient
{
public:
    /// Tells the present moment.
    using Clock = std::function<QDeadlineTimer()>;

    /// The clock that every client but one under test goes by.
    static QDeadlineTimer systemClock() { return QDeadlineTimer::current(Qt::CoarseTimer); }

    /// Owns a closed port of the platform's kind: 9600 baud, 8N1, limits of 500 ms for a write and 100 ms for a read.
    BootloaderClient();

    /// Owns a given, closed port. The deadlines of replies go by `clock`.
    explicit BootloaderClient(std::unique_ptr<SerialPort> serialPort, Clock clock = systemClock);

    BootloaderClient(const BootloaderClient&) = delete;
    BootloaderClient& operator=(const BootloaderClient&) = delete;

    /// Closes the line.
    ~BootloaderClient();

    /// Opens the line at `baudRate` bits per second. Below 57600 baud the limits of the port grow in proportion, since
    /// a block takes longer than they allow.
    /// @return false on failure; `errorString` then tells why.
    bool open(const std::string& portName, std::uint32_t baudRate);

    /// Makes the pending and all later transfers of this client end at once. May be called from any thread.
    void cancel();

    /// The last error of the port, in the platform's words.
    std::wstring errorString() const;

    /// @return true when the bootloader answered. Versions and identity then stand in the fields, unless the reply was
    /// too short to hold them.
    bool readVersion();

    /// Lets the bootloader answer a harmless request.
    /// @return true, whatever came.
    bool ping();

    /// Erases the memory of the device.
    /// @return true when the device confirmed it.
    bool eraseMemory();

    /// Asks whether `size` bytes (rounded down to whole words, at least one) from `address` on are blank.
    BootAnswer blankCheck(std::uint32_t address, std::uint64_t size);

    /// Writes `data` at `address`; an odd last byte is filled up with 0xFF.
    /// @return true when the device confirmed it.
    bool writeBlock(std::uint32_t address, const std::vector<std::uint8_t>& data);

    /// Reads `size` bytes (rounded up to whole words, at least one) from `address` on.
    /// @return the bytes that came, whose number the device decided; empty on failure. Of a damaged reply nothing is
    /// left in the input queue.
    std::vector<std::uint8_t> readBlock(std::uint32_t address, std::uint64_t size);

    /// Resets the device.
    /// @return true, whatever came.
    bool resetDevice(std::uint32_t address);

    /// Drops what comes in until the line falls silent for one read limit, so that the next reply belongs to the next
    /// request. Ends in bounded time on a line that never falls silent, and at once after a cancel.
    void dropInput();

    /// Makes sure that no reply to an earlier request can be taken for the next one's: a wrong match is how a burn
    /// would lie. Takes no time when every request has its answer. Otherwise it drops the input and asks the bootloader
    /// something whose answer looks unlike the one that is missing; since requests are answered in their order, nothing
    /// is on its way any more when that answer comes. Where it had to ask more than once, a later answer of the same
    /// kind may still come, and the next request then fails on it.
    /// @return whether the line is in step; false when no such answer came, and another call may do.
    bool resynchronise();

    /// Versions and identity out of the last good version reply.
    BootVersion bootloaderVersion;
    BootVersion firmwareVersion;
    std::uint16_t deviceId = 0;
    /// First and last address of the device's code memory, from its row of the family table. Held, not enforced.
    std::uint32_t codeStart = 0;
    std::uint32_t codeEnd = 0;

private:
    BootStatus sendCommand(BootCommand command, std::uint16_t address, std::uint16_t count);
    BootStatus sendData(BootCommand command, std::uint16_t address, const std::vector<std::uint8_t>& data);

    /// Puts a request on the line and brings its reply back: one write, then reads until a status byte, and what
    /// belongs to it, has come or the deadline of the command has passed. The deadline is tested only after a read, so
    /// a silent line is left at the first multiple of the read limit past it. What a failed exchange leaves in the
    /// input queue is met by the next one, which drops bytes that are no status.
    /// @return the status; `Data` when `reply` holds a new, whole and intact data reply; `None` in every other case.
    BootStatus exchange(const BootFrame& frame);
    BootStatus awaitReply(std::chrono::milliseconds limit);
    BootStatus awaitStatus(std::chrono::milliseconds limit);
    bool takeDataReply();
    void noteUnanswered(BootCommand command, std::uint16_t address);
    void forgetUnanswered();

    /// The last good data reply, from its status byte through its checksum.
    std::vector<std::uint8_t> reply;
    std::unique_ptr<SerialPort> port;

public:
    /// The line echoes what is sent; set before `open`.
    bool echoOn = false;

private:
    /// A request is without its answer, which may still come.
    bool unanswered = false;
    /// Among these requests is one for the block at this address, ...
    std::optional<std::uint16_t> unansweredBlock;
    /// ... or the last one of `resynchronise`.
    bool probeUnanswered = false;
    /// The last exchange met a data reply that was cut or not intact.
    bool damaged = false;
    Clock now = systemClock;
};
