#include "tools/devicesim/Device.h"

#include <algorithm>
#include <array>
#include <iterator>
#include <utility>

namespace devicesim
{

namespace
{

constexpr std::array statusBytes = {static_cast<std::uint8_t>(Status::NotBlank),
    static_cast<std::uint8_t>(Status::Data), static_cast<std::uint8_t>(Status::Ok),
    static_cast<std::uint8_t>(Status::Refused)};

/// How long a device that restarts hears nothing, and how long an exchange takes, if nothing else is said.
constexpr int restartMs = 500;
constexpr int swapMs = 2000;

} // namespace

Device::Device(const DeviceTraits& deviceTraits)
    : traits(deviceTraits)
    , cells(traits.memory, traits.faults.stuckBits)
    , generator(traits.seed)
    , deafUntil(traits.faults.startDelay)
{
}

std::optional<Reaction> Device::receive(std::uint8_t byte, std::chrono::nanoseconds sinceStart)
{
    if (losesByte(byte)) {
        ++report.lostBytes;
        return std::nullopt;
    }
    const std::optional<Request> request = parser.feed(byte);
    if (!request) {
        return std::nullopt;
    }
    if (!request->intact) {
        // It may have been meant for another command, so the device keeps silent, and the host asks again.
        ++report.wrongChecksums;
        return std::nullopt;
    }
    const RequestKind kind = kindOf(*request);
    const int number = ++counts[static_cast<std::size_t>(kind)];
    if (sinceStart < deafUntil) {
        return std::nullopt;
    }
    placedHere.clear();
    std::ranges::copy_if(traits.faults.placed, std::back_inserter(placedHere), [=](const PlacedFault& placed) {
        return placed.request == kind && (placed.number == number || placed.number == 0);
    });
    Reaction reaction = answer(*request, sinceStart);
    reaction.record.time = std::chrono::duration_cast<std::chrono::microseconds>(sinceStart);
    report.add(reaction.record);
    return reaction;
}

void Device::abandonRequest()
{
    parser.abandon();
    ++report.abandonedRequests;
}

Reaction Device::answer(const Request& request, std::chrono::nanoseconds sinceStart)
{
    Reaction reaction;
    RequestRecord& record = reaction.record;
    record.command = static_cast<std::uint8_t>(request.command);
    record.address = request.address;
    record.count = request.count;
    if (hit(Fault::HangUp, record.faults)) {
        report.hungUp = true;
        reaction.hangUp = true;
        return reaction;
    }
    if (isIgnored(sinceStart, record.faults)) {
        return reaction;
    }
    reaction.reply = carryOut(request, record.faults);
    record.status = reaction.reply.front();
    if (record.status == static_cast<std::uint8_t>(Status::Ok)) {
        if (request.command == Command::Erase) {
            reaction.delay = traits.eraseTime;
        } else if (request.command == Command::WriteBlock) {
            reaction.delay = traits.writeTime;
        }
        reaction.reset = request.command == Command::Reset;
    }
    if (const auto late = hit(Fault::Late, record.faults)) {
        reaction.delay += late->value ? std::chrono::milliseconds(*late->value) : traits.lateTime;
    }
    damage(reaction.reply, record.faults);
    return reaction;
}

bool Device::isIgnored(std::chrono::nanoseconds sinceStart, std::string& faults)
{
    const auto beDeaf = [&](const Hit& fault, int byDefault) {
        deafUntil = sinceStart + std::chrono::milliseconds(fault.value.value_or(byDefault));
    };
    if (const auto swap = hit(Fault::Swap, faults)) {
        swapDevice();
        beDeaf(*swap, swapMs);
        return true;
    }
    if (const auto restart = hit(Fault::Restart, faults)) {
        beDeaf(*restart, restartMs);
        return true;
    }
    return hit(Fault::Ignore, faults).has_value();
}

void Device::swapDevice()
{
    if (!otherCells) {
        otherCells = traits.otherMemory ? Memory(*traits.otherMemory) : cells;
    }
    std::swap(cells, *otherCells);
    traits.identity.deviceId ^= 1;
    isOther = !isOther;
}

std::vector<std::uint8_t> Device::carryOut(const Request& request, std::string& faults)
{
    if (hit(Fault::Refuse, faults)) {
        return statusReply(Status::Refused);
    }
    if (hit(Fault::NotBlank, faults)) {
        return statusReply(Status::NotBlank);
    }
    return execute(request, traits.identity, cells);
}

bool Device::losesByte(std::uint8_t byte)
{
    if (!parser.partial() && byte == requestStart) {
        passing = 0;
        losing = 0;
        if (happensByChance(Fault::Lose)) {
            // Within the part that every request has.
            passing = pick(0, headerBytes + checksumBytes - 1);
            losing = pick(1, 3);
        }
    }
    if (passing > 0) {
        --passing;
        return false;
    }
    if (losing > 0) {
        --losing;
        return true;
    }
    return false;
}

void Device::damage(std::vector<std::uint8_t>& reply, std::string& faults)
{
    if (hit(Fault::Drop, faults)) {
        reply.clear();
        return;
    }
    constexpr std::size_t smallestDataReply = headerBytes + checksumBytes;
    if (reply.size() > smallestDataReply && hit(Fault::BadBit, faults)) {
        reply[headerBytes] ^= 1;
        reply[reply.size() - checksumBytes] ^= 1;
    }
    if (hit(Fault::Twice, faults)) {
        const std::vector<std::uint8_t> again = reply;
        reply.insert(reply.end(), again.begin(), again.end());
    }
    if (reply.size() > 1) {
        if (const auto cut = hit(Fault::Cut, faults)) {
            const std::size_t left = cut->value ? static_cast<std::size_t>(*cut->value) : pick(1, reply.size() - 1);
            reply.resize(std::min(left, reply.size()));
        }
    }
    if (const auto flip = hit(Fault::Flip, faults)) {
        const std::size_t byte = flip->value ? static_cast<std::size_t>(*flip->value) / 8 : pick(0, reply.size() - 1);
        const std::size_t bit = flip->value ? static_cast<std::size_t>(*flip->value) % 8 : pick(0, 7);
        if (byte < reply.size()) {
            reply[byte] = static_cast<std::uint8_t>(reply[byte] ^ 1U << bit);
        }
    }
    if (hit(Fault::Noise, faults)) {
        for (std::size_t count = pick(1, 4); count > 0; --count) {
            reply.insert(reply.begin(), pickNoise());
        }
    }
    if (const auto stray = hit(Fault::Stray, faults)) {
        const auto byte = static_cast<std::uint8_t>(stray->value.value_or(0));
        reply.insert(reply.begin(), stray->value ? byte : statusBytes[pick(0, statusBytes.size() - 1)]);
    }
}

bool Device::happensByChance(Fault fault)
{
    const double probability = traits.faults.probabilities[indexOf(fault)];
    return probability > 0 && std::uniform_real_distribution<double>(0, 1)(generator) < probability;
}

std::optional<Device::Hit> Device::hit(Fault fault, std::string& faults)
{
    const auto placed = std::ranges::find(placedHere, fault, &PlacedFault::fault);
    const bool isPlaced = placed != placedHere.end();
    if (!isPlaced && !happensByChance(fault)) {
        return std::nullopt;
    }
    faults += faults.empty() ? "" : ",";
    faults += faultNames[indexOf(fault)];
    return Hit{isPlaced ? placed->value : std::nullopt};
}

std::size_t Device::pick(std::size_t first, std::size_t last)
{
    return std::uniform_int_distribution<std::size_t>(first, last)(generator);
}

std::uint8_t Device::pickNoise()
{
    std::uint8_t byte = 0;
    do {
        byte = static_cast<std::uint8_t>(pick(0, 0xFF));
    } while (std::ranges::find(statusBytes, byte) != statusBytes.end());
    return byte;
}

} // namespace devicesim
