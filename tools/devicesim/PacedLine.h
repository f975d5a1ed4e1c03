#pragma once

#include "tools/devicesim/PseudoTerminal.h"

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <optional>
#include <span>

namespace devicesim
{

/// A serial line over a pseudo-terminal that takes the time of a real one, both ways at once.
///
/// Ten bits make a byte (8N1). All times are absolute and follow from the first byte of a burst, so that late wake-ups
/// do not add up. Bytes that a host hands over at once arrive one after the other from the moment they were seen.
/// Without a baud rate nothing takes time.
class PacedLine
{
public:
    struct Byte {
        std::uint8_t value = 0;
        /// When it has arrived, or has left.
        TimePoint due;
    };

    /// @param pseudoTerminal outlives the line.
    /// @param baudRate 0: no pacing.
    /// @param echoOn every byte that arrives is sent back at once.
    PacedLine(PseudoTerminal& pseudoTerminal, std::uint32_t baudRate, bool echoOn);

    /// Moves bytes: takes what the host has written, and hands over what has left by `now`.
    void transfer(TimePoint now);

    /// @return the next byte that has arrived by `now`, if any; it is taken off the queue.
    std::optional<Byte> take(TimePoint now);

    /// Puts bytes on the line behind those that are being sent, not before `earliest`.
    void send(std::span<const std::uint8_t> bytes, TimePoint earliest);

    /// When the `count`th of the bytes not yet taken arrives (1 for the next); none if it has not been seen.
    std::optional<TimePoint> arrivalOf(std::size_t count) const;

    /// False while so much waits that the host has to wait too.
    bool canReceive() const { return arriving.size() < largestInput; }

    bool hasInput() const { return !arriving.empty(); }

    /// When the last byte seen has arrived: the line is quiet from then on.
    TimePoint quietSince() const { return receiveFree; }

    /// When the last byte given to `send` has left.
    TimePoint sentAt() const { return sendFree; }

    /// When `transfer` next has bytes to hand over; none if nothing is being sent.
    std::optional<TimePoint> nextHandover() const;

    std::uint64_t bytesReceived() const { return received; }
    std::uint64_t bytesSent() const { return sent; }
    /// Bytes for which the host's input queue had no room.
    std::uint64_t bytesOverrun() const { return overrun; }
    std::chrono::nanoseconds byteTime() const { return timePerByte; }

private:
    static constexpr std::size_t largestInput = 0x10000;

    void receive(TimePoint now);
    void handOver(TimePoint now);

    PseudoTerminal& terminal;
    std::chrono::nanoseconds timePerByte;
    bool echo;
    std::deque<Byte> arriving;
    std::deque<Byte> leaving;
    TimePoint receiveFree;
    TimePoint sendFree;
    std::uint64_t received = 0;
    std::uint64_t sent = 0;
    std::uint64_t overrun = 0;
};

} // namespace devicesim
