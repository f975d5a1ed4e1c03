#include "tools/devicesim/FaultInjector.h"

#include "tools/devicesim/WireFormat.h"

#include <algorithm>
#include <array>

namespace devicesim
{

namespace
{

constexpr std::array<std::uint8_t, 4> statusBytes = {static_cast<std::uint8_t>(Status::NotBlank),
    static_cast<std::uint8_t>(Status::Data), static_cast<std::uint8_t>(Status::Ok),
    static_cast<std::uint8_t>(Status::Refused)};

} // namespace

void appendFaultName(std::string& names, const char* name)
{
    if (!names.empty()) {
        names += ',';
    }
    names += name;
}

FaultInjector::FaultInjector(const FaultPlan& faultPlan, std::uint64_t seed)
    : plan(faultPlan)
    , generator(seed)
{
}

bool FaultInjector::happens(Fault fault)
{
    const double probability = plan.probability(fault);
    return probability > 0 && std::uniform_real_distribution<double>(0, 1)(generator) < probability;
}

bool FaultInjector::losesByte(bool startsRequest)
{
    if (startsRequest) {
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

void FaultInjector::damage(std::vector<std::uint8_t>& reply, std::string& names)
{
    if (happens(Fault::Drop)) {
        reply.clear();
        appendFaultName(names, "drop");
        return;
    }
    if (reply.size() > 1 && happens(Fault::Cut)) {
        cut(reply);
        appendFaultName(names, "cut");
    }
    if (happens(Fault::Flip)) {
        flip(reply);
        appendFaultName(names, "flip");
    }
    if (happens(Fault::Noise)) {
        precede(reply, false);
        appendFaultName(names, "noise");
    }
    if (happens(Fault::Stray)) {
        precede(reply, true);
        appendFaultName(names, "stray");
    }
}

std::size_t FaultInjector::pick(std::size_t first, std::size_t last)
{
    return std::uniform_int_distribution<std::size_t>(first, last)(generator);
}

void FaultInjector::cut(std::vector<std::uint8_t>& reply)
{
    reply.resize(pick(1, reply.size() - 1));
}

void FaultInjector::flip(std::vector<std::uint8_t>& reply)
{
    std::uint8_t& byte = reply[pick(0, reply.size() - 1)];
    byte = static_cast<std::uint8_t>(byte ^ 1U << pick(0, 7));
}

void FaultInjector::precede(std::vector<std::uint8_t>& reply, bool byStatus)
{
    if (byStatus) {
        reply.insert(reply.begin(), statusBytes[pick(0, statusBytes.size() - 1)]);
        return;
    }
    for (std::size_t count = pick(1, 4); count > 0; --count) {
        std::uint8_t byte = 0;
        do {
            byte = static_cast<std::uint8_t>(pick(0, 0xFF));
        } while (std::find(statusBytes.begin(), statusBytes.end(), byte) != statusBytes.end());
        reply.insert(reply.begin(), byte);
    }
}

} // namespace devicesim
