#pragma once

#include "tools/devicesim/Bootloader.h"
#include "tools/devicesim/DeviceReport.h"
#include "tools/devicesim/FaultPlan.h"

#include <array>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <random>
#include <string>
#include <vector>

namespace devicesim
{

/// What a device is like, apart from its line.
struct DeviceTraits {
    Identity identity;
    /// Time between the end of a request and its reply.
    std::chrono::milliseconds eraseTime{0};
    std::chrono::milliseconds writeTime{0};
    /// By how much a late reply is late. Hosts give up after some 300 to 400 ms.
    std::chrono::milliseconds lateTime{500};
    /// What the memory holds at first; the rest of its 64 KiB is 0xFF.
    std::vector<std::uint8_t> memory;
    /// What the other device of a swap holds, which then has no stuck bits. Without it that one is the same as the
    /// first at the time of the swap.
    std::optional<std::vector<std::uint8_t>> otherMemory;
    FaultPlan faults;
    /// Random seed of the faults.
    std::uint64_t seed = 1;
};

/// What a request leads to.
struct Reaction {
    RequestRecord record;
    /// The reply as the faults leave it; empty if it is lost.
    std::vector<std::uint8_t> reply;
    /// Between the end of the request and the reply.
    std::chrono::milliseconds delay{0};
    /// The device resets once the reply has left.
    bool reset = false;
    /// The line hangs up instead of a reply.
    bool hangUp = false;
};

/// A bootloader with its memory, and the faults of a plan. It knows neither a line nor a clock: it is handed each byte
/// with the time at which that arrived. The same seed and the same requests give the same faults.
class Device
{
public:
    explicit Device(const DeviceTraits& deviceTraits);

    /// @param sinceStart when the byte has arrived.
    /// @return what the request that the byte completes leads to; nothing if it completes none, or one with a wrong
    /// checksum, to which the device keeps silent.
    std::optional<Reaction> receive(std::uint8_t byte, std::chrono::nanoseconds sinceStart);

    /// A request has begun and is not complete.
    bool inRequest() const { return parser.partial(); }

    /// The least number of bytes that may complete a request; at least 1.
    std::size_t missingBytes() const { return parser.missing(); }

    /// Drops a request that was cut off.
    void abandonRequest();

    /// Of the device that was on the line first, whichever answers now.
    const std::vector<std::uint8_t>& memory() const { return isOther ? otherCells->bytes() : cells.bytes(); }

    /// The id of the device that answers.
    std::uint16_t id() const { return traits.identity.deviceId; }

    /// What was seen and done so far. The caller adds the resets, and the bytes on the line.
    DeviceReport report;

private:
    /// A fault that happens, with its value if that is given.
    struct Hit {
        std::optional<int> value;
    };

    Reaction answer(const Request& request, std::chrono::nanoseconds sinceStart);
    std::vector<std::uint8_t> carryOut(const Request& request, std::string& faults);
    bool isIgnored(std::chrono::nanoseconds sinceStart, std::string& faults);
    void swapDevice();
    bool losesByte(std::uint8_t byte);
    void damage(std::vector<std::uint8_t>& reply, std::string& faults);
    bool happensByChance(Fault fault);
    /// @param faults gets the name of the fault if that happens with the current request.
    std::optional<Hit> hit(Fault fault, std::string& faults);
    std::size_t pick(std::size_t first, std::size_t last);
    std::uint8_t pickNoise();

    DeviceTraits traits;
    Memory cells;
    /// What the device holds that is off the line: the other one, or the first while `isOther`.
    std::optional<Memory> otherCells;
    bool isOther = false;
    RequestParser parser;
    std::mt19937_64 generator;
    /// Of the request under way: bytes that still pass, and bytes that are lost behind them.
    std::size_t passing = 0;
    std::size_t losing = 0;
    /// Requests so far by `RequestKind`, heard or not.
    std::array<int, requestNames.size()> counts = {};
    /// The placed faults that hit the current request.
    std::vector<PlacedFault> placedHere;
    /// Nothing is heard until then.
    std::chrono::nanoseconds deafUntil;
};

} // namespace devicesim
