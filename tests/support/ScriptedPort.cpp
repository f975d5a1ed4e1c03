#include "tests/support/ScriptedPort.h"

#include <algorithm>
#include <utility>

using std::chrono::microseconds;

ScriptedLine::Reply ScriptedLine::dataReply(const Bytes& data)
{
    const std::size_t words = data.size() / 2;
    Bytes bytes = {0x80, 0, 0, 0, static_cast<std::uint8_t>(words), static_cast<std::uint8_t>(words >> 8)};
    bytes.insert(bytes.end(), data.begin(), data.end());
    Bytes sum = {0xFF, 0xFF};
    for (std::size_t i = 0; i < bytes.size(); ++i)
        sum[i % 2] ^= bytes[i];
    bytes.insert(bytes.end(), sum.begin(), sum.end());
    return {bytes};
}

void ScriptedLine::deliver(const Reply& reply)
{
    microseconds due = std::max(now + reply.after, input.empty() ? now : input.back().due);
    for (const std::uint8_t byte : reply.bytes)
        input.push_back({due += byteTime, byte});
}

std::function<QDeadlineTimer()> ScriptedLine::clock()
{
    return [this] {
        QDeadlineTimer moment;
        moment.setPreciseDeadline(0, std::chrono::nanoseconds(now).count());
        return moment;
    };
}

ScriptedPort::ScriptedPort(std::shared_ptr<ScriptedLine> scriptedLine)
    : SerialPort({})
    , line(std::move(scriptedLine))
{
}

bool ScriptedPort::open()
{
    line->opened = settings;
    line->input.clear();
    line->cancelled = false;
    isOpened = line->openError.empty() && settings.baudRate > 0;
    if (isOpened)
        line->byteTime = microseconds(10'000'000 / settings.baudRate);
    return isOpened;
}

bool ScriptedPort::purge(bool receive, bool)
{
    if (receive)
        line->input.clear();
    return true;
}

std::uint32_t ScriptedPort::bytesAvailable() const
{
    return static_cast<std::uint32_t>(
        std::ranges::count_if(line->input, [this](const auto& arrival) { return arrival.due <= line->now; }));
}

std::size_t ScriptedPort::write(const std::uint8_t* buffer, std::size_t size)
{
    const auto withinLimit = std::chrono::milliseconds(settings.writeTimeoutMs) / line->byteTime;
    const std::size_t count = std::min({size, line->writable, static_cast<std::size_t>(withinLimit)});
    if (!isOpened || line->cancelled || count == 0)
        return 0;
    const ScriptedLine::Bytes request(buffer, buffer + count);
    line->now += count * line->byteTime;
    line->sent = line->now;
    line->requests.push_back(request);
    for (const std::uint8_t byte : line->echo ? request : ScriptedLine::Bytes())
        line->input.push_back({line->now, byte});
    line->deliver(line->device(request));
    return count;
}

std::size_t ScriptedPort::read(std::uint8_t* buffer, std::size_t size)
{
    const microseconds limit = line->now + std::chrono::milliseconds(settings.readTimeoutMs);
    std::size_t count = 0;
    for (; isOpened && count < size && !line->input.empty(); ++count) {
        const ScriptedLine::Arrival next = line->input.front();
        if (next.due > (line->cancelled ? line->now : limit))
            break;
        line->now = std::max(line->now, next.due);
        buffer[count] = next.byte;
        line->input.pop_front();
    }
    if (count < size)
        line->now = isOpened && !line->cancelled ? limit : line->now + std::chrono::milliseconds(1);
    return count;
}
