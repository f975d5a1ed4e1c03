#pragma once

#include "tools/devicesim/WireFormat.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <vector>

namespace devicesim
{

/// One bit of the memory that does not change any more.
struct StuckBit {
    std::uint16_t address = 0;
    /// 0 (least significant) to 7.
    int bit = 0;
    /// The value that the bit always reads as: true, it never clears; false, it never sets.
    bool value = true;
};

/// Flash memory of 64 KiB: writing only clears bits, and only erasing sets them again.
class Memory
{
public:
    static constexpr std::size_t size = 0x10000;

    /// @param content what the memory holds at first; a shorter one is filled up with 0xFF, a longer one cut off.
    explicit Memory(std::span<const std::uint8_t> content, std::vector<StuckBit> stuck = {});

    /// @return whether the range lies within the memory.
    static bool holds(std::size_t address, std::size_t length) { return address + length <= size; }

    /// Sets every bit.
    void erase();

    /// Clears the bits that are 0 in `bytes`. The range lies within the memory.
    void write(std::size_t address, std::span<const std::uint8_t> bytes);

    /// @return whether all bits of the range, which lies within the memory, are set.
    bool isBlank(std::size_t address, std::size_t length) const;

    const std::vector<std::uint8_t>& bytes() const { return cells; }

private:
    void applyStuckBits();

    std::vector<std::uint8_t> cells;
    std::vector<StuckBit> stuckBits;
};

/// A request as it came, its checksum right or not.
struct Request {
    Command command = Command::GetVersion;
    /// A byte address, or a parameter of the command.
    std::uint16_t address = 0;
    /// A number of words, or a parameter of the command.
    std::uint16_t count = 0;
    /// 2 × `count` bytes in a write, empty in all other requests.
    std::vector<std::uint8_t> data;
    bool intact = false;
};

/// What a request is for. A blank check of the one word that pings ask for is a ping.
enum class RequestKind : std::uint8_t { Version, Ping, Erase, BlankCheck, Write, Read, Reset };

/// By `RequestKind`, as on the command line.
inline constexpr std::array requestNames = {"version", "ping", "erase", "blank-check", "write", "read", "reset"};

RequestKind kindOf(const Request& request);

/// Finds requests in a stream of bytes. Bytes that cannot begin a request are skipped. A request that is cut off stays
/// partial until `abandon`: it has no end mark, so only silence on the line tells that nothing follows.
class RequestParser
{
public:
    /// @return the request that `byte` completes.
    std::optional<Request> feed(std::uint8_t byte);

    /// The least number of bytes that may complete a request; at least 1.
    std::size_t missing() const;

    /// A request has begun and is not complete.
    bool partial() const { return !frame.empty(); }

    /// Drops a partial request.
    void abandon() { frame.clear(); }

private:
    std::vector<std::uint8_t> frame;
};

/// What the version request reports.
struct Identity {
    /// Version words: 4 bits major, 6 bits minor, 6 bits patch, from the top.
    std::uint16_t bootloaderVersion = 0x1042;
    std::uint16_t firmwareVersion = 0x2083;
    std::uint16_t deviceId = 0x0300;
};

inline std::vector<std::uint8_t> statusReply(Status status)
{
    return {static_cast<std::uint8_t>(status)};
}

/// Carries out an intact request on a memory.
/// @return the whole reply; never empty. What reaches past the end of the memory, a read of more than
/// `largestReadCount` words and an erase without its fixed parameters are refused and change nothing.
std::vector<std::uint8_t> execute(const Request& request, const Identity& identity, Memory& memory);

} // namespace devicesim
