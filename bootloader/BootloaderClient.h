#pragma once

#include "bootloader/BootFrame.h"
#include "bootloader/BootVersion.h"
#include "bootloader/Clock.h"

#include <array>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

class SerialPort;

/// The result of a blank check; `blank` is valid only when `answered` is true.
struct BootAnswer {
    bool blank = false;
    bool answered = false;
};

/// The bootloader of a device as operations: each sends one request and reads its reply. Nothing throws, nothing but
/// `confirmIdentity` repeats its request, and a caller cannot tell a reply that did not come from one that was refused
/// or damaged.
///
/// Replies carry no address. The client therefore makes sure that a late reply to an earlier request is not taken for
/// the answer to a new one, see `ensureInStep`. Where it cannot, the operation ends as one without an answer.
///
/// Addresses are byte addresses, of which the low 16 bits go on the wire. All operations run on one thread; `cancel`
/// alone may come from another.
class BootloaderClient
{
public:
    /// Owns a closed port of the platform's kind: 9600 baud, 8N1, limits of 500 ms for a write and 100 ms for a read.
    BootloaderClient();

    /// Owns a given, closed port. The deadlines of replies go by `clientClock`.
    explicit BootloaderClient(std::unique_ptr<SerialPort> serialPort, Clock clientClock = systemClock);

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

    /// Asks for the version once more, a few times if need be.
    /// @return true when a device has told its identity, and it is that of `expectedDevice`.
    bool confirmIdentity();

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
    /// @return the bytes that came, whose number the device decided; empty on failure.
    std::vector<std::uint8_t> readBlock(std::uint32_t address, std::uint64_t size);

    /// Resets the device.
    /// @return true, whatever came.
    bool resetDevice(std::uint32_t address);

    /// Reports that the last reply may have belonged to an earlier request: drops what comes in until the line is
    /// silent for one read limit, and lets a repeat of the request, but nothing else, be sent without further checks.
    /// Ends in bounded time on a line that is never silent, and at once after a cancel. Without a request before it
    /// does no more than that.
    void rejectReply();

    /// Announces that the next request could be satisfied by a second copy of the last reply, as when a block is read
    /// that should hold the same bytes as the one before. The client then makes sure that no copy is in flight. Has no
    /// effect without a request before.
    void expectEqualReply();

    /// True when the device that answers turned out to have another identity than `expectedDevice`. Nothing is sent any
    /// more from then on: every operation ends as one without an answer.
    bool metOtherDevice() const { return otherDevice; }

    /// Versions and identity out of the last good version reply.
    BootVersion bootloaderVersion;
    BootVersion firmwareVersion;
    std::uint16_t deviceId = 0;
    /// First and last address of the device's code memory, from its row of the family table. Held, not enforced.
    std::uint32_t codeStart = 0;
    std::uint32_t codeEnd = 0;
    /// The line echoes what is sent; set before `open`.
    bool echoOn = false;
    /// The only device that the burn is for. `readVersion` reports any; a version request that the client makes of its
    /// own accord checks the identity against this one.
    std::optional<std::uint16_t> expectedDevice;

private:
    /// What may still come in for requests that are over.
    ///
    /// Invariant: the device answers requests in their order, so the only replies in flight are those to `request`, as
    /// often as it was sent, and behind them those to `probes` probes. No reply is in flight when `cause` is `Nothing`.
    struct InFlight {
        enum class Cause {
            Nothing,
            /// A second copy of the reply, should the device or the link have made one.
            Copy,
            /// The reply itself: the request was repeated, or left behind, without its answer.
            Answer,
        };

        /// Empty before the first request.
        BootFrame request;
        Cause cause = Cause::Nothing;
        /// When `request` was sent, the first time if it was repeated: what answers it was there at that time, or
        /// later.
        QDeadlineTimer firstSent = {};
        /// How late the answer came if `request` asked for the version. That the next answer is as late tells nothing.
        std::chrono::milliseconds lateness{0};
        int probes = 0;
        /// What the last of the probes asked, and when it was first asked.
        BootFrame question = {};
        QDeadlineTimer firstProbe = {};
        /// When its answer came, or the wait for it ended.
        QDeadlineTimer heard = {};
        /// The input queue may hold the rest of a damaged data reply, which can look like any reply.
        bool debris = false;
    };

    BootStatus sendCommand(BootCommand command, std::uint16_t address, std::uint16_t count);
    BootStatus sendData(BootCommand command, std::uint16_t address, const std::vector<std::uint8_t>& data);

    /// Sends a request and reads its reply: one write, then reads until a status byte, and what belongs to it, has come
    /// or the deadline of the command has passed. The deadline is tested only after a read, so a silent line is left at
    /// the first multiple of the read limit past it. What a failed exchange leaves in the input queue is met by the
    /// next one, which drops bytes that are no status; after several unusable replies in a row the queue is emptied.
    /// @return the status; `Data` when `reply` holds a new, whole and intact data reply; `None` in every other case,
    /// also when the request was not sent because an earlier reply could still come.
    BootStatus exchange(const BootFrame& frame);
    BootStatus transfer(const BootFrame& frame);
    void dropInput();
    std::optional<BootStatus> ensureInStep(const BootFrame& frame);
    bool wasSeenWithin(std::chrono::milliseconds time) const;
    BootFrame questionUnlike(const BootFrame& request) const;
    BootStatus probe(const BootFrame& question, bool repeats);
    BootStatus awaitReply(std::chrono::milliseconds limit);
    BootStatus awaitStatus(std::chrono::milliseconds limit);
    bool takeDataReply();
    bool isAnswerTo(const BootFrame& frame, BootStatus status) const;
    void takeIdentity();
    bool meetsOtherDevice();

    /// The last good data reply, from its status byte through its checksum.
    std::vector<std::uint8_t> reply;
    std::unique_ptr<SerialPort> port;
    /// Where a reply is read to. The first byte is the status of the current exchange.
    std::array<std::uint8_t, boot::replyCapacity> replyBuffer{};
    InFlight inFlight;
    /// Of the version replies of this device, once one has come: all are alike.
    std::optional<std::size_t> versionSize;
    /// Exchanges in a row that ended with a damaged reply, or with one that is no answer to their request. The input
    /// queue may then be out of step with the replies for good: where a block holds what looks like the head of a
    /// reply, each attempt takes that for its reply and swallows the head of the next.
    int unusableReplies = 0;
    /// When the device that the client knows was on the line for certain: at `open`, or when it was asked what it has
    /// answered. A late reply proves no more than that.
    QDeadlineTimer lastSeen;
    /// How long after that it is taken for the same device, as long as it answers.
    std::chrono::milliseconds knownFor{};
    /// A request was left without an answer, and no version reply has told since which device is there.
    bool isDoubted = false;
    bool otherDevice = false;
    Clock now;
};
