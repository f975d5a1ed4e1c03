#include "tools/devicesim/PacedLine.h"

#include <algorithm>
#include <array>

namespace devicesim
{

namespace
{

using namespace std::chrono_literals;

constexpr std::int64_t bitsPerByte = 10;

/// A host sees bytes in portions of this length, as an adapter delivers them.
constexpr auto handoverPeriod = 1ms;

std::chrono::nanoseconds timeOfByte(std::uint32_t baudRate)
{
    if (baudRate == 0) {
        return 0ns;
    }
    const auto second = std::chrono::nanoseconds(1s).count();
    return std::chrono::nanoseconds((bitsPerByte * second + baudRate / 2) / baudRate);
}

} // namespace

PacedLine::PacedLine(PseudoTerminal& pseudoTerminal, std::uint32_t baudRate, bool echoOn)
    : terminal(pseudoTerminal)
    , timePerByte(timeOfByte(baudRate))
    , echo(echoOn)
{
}

void PacedLine::transfer(TimePoint now)
{
    receive(now);
    handOver(now);
}

void PacedLine::receive(TimePoint now)
{
    if (!canReceive()) {
        return;
    }
    std::array<std::uint8_t, 4096> buffer = {};
    const std::size_t count = terminal.read(buffer);
    if (count == 0) {
        return;
    }
    received += count;
    receiveFree = std::max(receiveFree, now);
    for (const std::uint8_t value : std::span(buffer).first(count)) {
        receiveFree += timePerByte;
        arriving.push_back({value, receiveFree});
        if (echo) {
            send(std::span(&value, 1), receiveFree);
        }
    }
}

void PacedLine::handOver(TimePoint now)
{
    std::array<std::uint8_t, 4096> portion = {};
    while (!leaving.empty() && leaving.front().due <= now) {
        std::size_t count = 0;
        while (count < portion.size() && !leaving.empty() && leaving.front().due <= now) {
            portion[count] = leaving.front().value;
            leaving.pop_front();
            ++count;
        }
        const std::size_t taken = terminal.write(std::span(portion).first(count));
        sent += taken;
        overrun += count - taken;
    }
}

std::optional<PacedLine::Byte> PacedLine::take(TimePoint now)
{
    if (arriving.empty() || arriving.front().due > now) {
        return std::nullopt;
    }
    const Byte byte = arriving.front();
    arriving.pop_front();
    return byte;
}

void PacedLine::send(std::span<const std::uint8_t> bytes, TimePoint earliest)
{
    sendFree = std::max(sendFree, earliest);
    for (const std::uint8_t value : bytes) {
        sendFree += timePerByte;
        leaving.push_back({value, sendFree});
    }
}

std::optional<TimePoint> PacedLine::arrivalOf(std::size_t count) const
{
    if (count > arriving.size()) {
        return std::nullopt;
    }
    return arriving[count - 1].due;
}

std::optional<TimePoint> PacedLine::nextHandover() const
{
    if (leaving.empty()) {
        return std::nullopt;
    }
    const TimePoint periodEnd = leaving.front().due + handoverPeriod;
    const auto behind = std::upper_bound(
        leaving.begin(), leaving.end(), periodEnd, [](TimePoint limit, const Byte& byte) { return limit < byte.due; });
    return std::prev(behind)->due;
}

} // namespace devicesim
