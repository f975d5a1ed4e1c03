#include "tools/devicesim/Device.h"

#include <algorithm>
#include <array>
#include <utility>

namespace devicesim
{

namespace
{

constexpr std::array statusBytes = {static_cast<std::uint8_t>(Status::NotBlank),
    static_cast<std::uint8_t>(Status::Data), static_cast<std::uint8_t>(Status::Ok),
    static_cast<std::uint8_t>(Status::Refused)};

/// @param names are separated by commas.
void appendName(std::string& names, const char* name)
{
    if (!names.empty()) {
        names += ',';
    }
    names += name;
}

} // namespace

Device::Device(const DeviceTraits& deviceTraits)
    : traits(deviceTraits)
    , cells(traits.memory, traits.faults.stuckBits)
    , generator(traits.seed)
    , dirtyBlankLeft(traits.faults.dirtyBlank)
{
}

std::optional<Reaction> Device::receive(std::uint8_t byte, std::chrono::nanoseconds sinceStart)
{
    if (sinceStart < traits.faults.startDelay) {
        return std::nullopt;
    }
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
    Reaction reaction = answer(*request);
    reaction.record.time = std::chrono::duration_cast<std::chrono::microseconds>(sinceStart);
    report.add(reaction.record);
    return reaction;
}

void Device::abandonRequest()
{
    parser.abandon();
    ++report.abandonedRequests;
}

Reaction Device::answer(const Request& request)
{
    Reaction reaction;
    RequestRecord& record = reaction.record;
    record.command = static_cast<std::uint8_t>(request.command);
    record.address = request.address;
    record.count = request.count;
    if (hangsUpAt(request.command)) {
        record.faults = "hangup";
        report.hungUp = true;
        reaction.hangUp = true;
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
    if (happens(Fault::Late, record.faults)) {
        reaction.delay += traits.lateTime;
    }
    damage(reaction.reply, record.faults);
    return reaction;
}

std::vector<std::uint8_t> Device::carryOut(const Request& request, std::string& faults)
{
    if (happens(Fault::Refuse, faults)) {
        return statusReply(Status::Refused);
    }
    if (request.command == Command::BlankCheck && std::exchange(dirtyBlankDue, false)) {
        appendName(faults, "dirty-blank");
        return statusReply(Status::NotBlank);
    }
    std::vector<std::uint8_t> reply = execute(request, traits.identity, cells);
    if (request.command == Command::Erase && reply == statusReply(Status::Ok)) {
        dirtyBlankDue = std::exchange(dirtyBlankLeft, false);
    }
    return reply;
}

bool Device::hangsUpAt(Command command)
{
    if (requestCount > 0 || command == traits.faults.hangupFrom.value_or(command)) {
        ++requestCount;
    }
    return requestCount > 0 && requestCount == traits.faults.hangupAt;
}

bool Device::losesByte(std::uint8_t byte)
{
    if (!parser.partial() && byte == requestStart) {
        passing = 0;
        losing = 0;
        if (happens(Fault::Lose)) {
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
    if (happens(Fault::Drop, faults)) {
        reply.clear();
        return;
    }
    if (reply.size() > 1 && happens(Fault::Cut, faults)) {
        reply.resize(pick(1, reply.size() - 1));
    }
    if (happens(Fault::Flip, faults)) {
        std::uint8_t& byte = reply[pick(0, reply.size() - 1)];
        byte = static_cast<std::uint8_t>(byte ^ 1U << pick(0, 7));
    }
    if (happens(Fault::Noise, faults)) {
        for (std::size_t count = pick(1, 4); count > 0; --count) {
            reply.insert(reply.begin(), pickNoise());
        }
    }
    if (happens(Fault::Stray, faults)) {
        reply.insert(reply.begin(), statusBytes[pick(0, statusBytes.size() - 1)]);
    }
}

bool Device::happens(Fault fault)
{
    const double probability = traits.faults.probabilities[indexOf(fault)];
    return probability > 0 && std::uniform_real_distribution<double>(0, 1)(generator) < probability;
}

bool Device::happens(Fault fault, std::string& faults)
{
    const bool happened = happens(fault);
    if (happened) {
        appendName(faults, faultNames[indexOf(fault)]);
    }
    return happened;
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
