#include "tests/support/ScriptedPort.h"

#include <algorithm>

using std::chrono::milliseconds;

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
    Time due = std::max(now + reply.after, input.empty() ? now : input.back().first);
    for (const std::uint8_t byte : reply.bytes)
        input.emplace_back(due += byteTime(), byte);
}

std::function<QDeadlineTimer()> ScriptedLine::clock()
{
    return [this] { return QDeadlineTimer::addNSecs({}, now.count()); };
}

bool ScriptedPort::open()
{
    line->opened = settings;
    line->input.clear();
    line->cancelled = false;
    return isOpened = line->openError.empty() && settings.baudRate > 0;
}

std::size_t ScriptedPort::write(const std::uint8_t* buffer, std::size_t size)
{
    const auto inTime = static_cast<std::size_t>(milliseconds(settings.writeTimeoutMs) / line->byteTime());
    const std::size_t count = isOpened && !line->cancelled ? std::min({size, inTime, line->writable}) : 0;
    const ScriptedLine::Bytes request(buffer, buffer + count);
    if (count == 0)
        return 0;
    line->now = line->sent = line->now + count * line->byteTime();
    line->requests.push_back(request);
    for (const std::uint8_t byte : line->echo ? request : ScriptedLine::Bytes())
        line->input.emplace_back(line->now, byte);
    line->deliver(line->device(request));
    return count;
}

std::size_t ScriptedPort::read(std::uint8_t* buffer, std::size_t size)
{
    const bool waits = isOpened && !line->cancelled;
    const auto limit = line->now + milliseconds(waits ? settings.readTimeoutMs : 1);
    std::size_t count = 0;
    for (; waits && count < size && !line->input.empty() && line->input.front().first <= limit; ++count) {
        line->now = std::max(line->now, line->input.front().first);
        buffer[count] = line->input.front().second;
        line->input.pop_front();
    }
    if (count < size)
        line->now = limit;
    return count;
}
