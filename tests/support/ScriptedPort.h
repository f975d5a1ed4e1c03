#pragma once

#include "serial/SerialPort.h"

#include <QDeadlineTimer>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <deque>
#include <functional>
#include <vector>

/// A line and the device at its far end, played in a time of its own: nothing sleeps, and what takes time on a real
/// line (10 bits a byte each way, a read that finds silence) moves `now` instead. Outlives the port, so that a test can
/// look at it after the owner of the port is gone. Used by one thread; `cancelled` alone may be set from another.
struct ScriptedLine {
    using Bytes = std::vector<std::uint8_t>;
    using Time = std::chrono::nanoseconds;

    /// What the device sends, and how long after the last byte of the request. No bytes: it keeps silent.
    struct Reply {
        Bytes bytes;
        Time after{0};
    };

    /// A whole, good data reply that carries `data`, an even number of bytes.
    static Reply dataReply(const Bytes& data)
    {
        const std::size_t words = data.size() / 2;
        Bytes bytes = {0x80, 0, 0, 0, static_cast<std::uint8_t>(words), static_cast<std::uint8_t>(words >> 8)};
        bytes.insert(bytes.end(), data.begin(), data.end());
        Bytes sum = {0xFF, 0xFF};
        for (std::size_t i = 0; i < bytes.size(); ++i) {
            sum[i % 2] ^= bytes[i];
        }
        bytes.insert(bytes.end(), sum.begin(), sum.end());
        return {bytes};
    }

    /// Lets bytes come in one after the other, behind what is on its way already.
    void deliver(const Reply& reply)
    {
        Time due = std::max(now + reply.after, input.empty() ? now : input.back().first);
        for (const std::uint8_t byte : reply.bytes) {
            input.emplace_back(due += byteTime(), byte);
        }
    }

    /// The clock of this line, for a client under test. Valid as long as the line.
    std::function<QDeadlineTimer()> clock()
    {
        return [this] { return QDeadlineTimer::addNSecs({}, now.count()); };
    }

    /// What the device makes of a request. Called with each write that sent anything; may change the line.
    std::function<Reply(const Bytes& request)> device = [](const Bytes&) { return Reply{}; };

    /// The line sends back what is written, ahead of the reply.
    bool echo = false;
    /// A write sends no more bytes than this.
    std::size_t writable = SIZE_MAX;
    /// Not empty: `open` fails with this text.
    std::wstring openError;
    /// Set by a cancel, taken back by `open`. Transfers then end with nothing, a read after a millisecond on the line.
    std::atomic<bool> cancelled = false;

    /// What was written, one entry a write.
    std::vector<Bytes> requests;
    /// The settings of the last `open`.
    PortSettings opened;
    /// Time on the line, and when the last write had left.
    Time now{0};
    Time sent{0};
    /// Bytes on their way in, each with the time of its arrival.
    std::deque<std::pair<Time, std::uint8_t>> input;

    Time byteTime() const { return Time(10'000'000'000 / opened.baudRate); }
};

/// A port on a `ScriptedLine`.
class ScriptedPort : public SerialPort
{
public:
    explicit ScriptedPort(std::shared_ptr<ScriptedLine> scriptedLine)
        : SerialPort({})
        , line(std::move(scriptedLine))
    {
    }

    bool open() override
    {
        line->opened = settings;
        line->input.clear();
        line->cancelled = false;
        return isOpened = line->openError.empty() && settings.baudRate > 0;
    }
    void close() override { isOpened = false; }
    bool isOpen() const override { return isOpened; }
    void cancel() override { line->cancelled = true; }
    std::wstring errorString() const override { return line->openError; }
    bool purge(bool, bool) override { return true; }
    std::uint32_t bytesAvailable() const override { return 0; }
    std::size_t write(const std::uint8_t* buffer, std::size_t size) override
    {
        const auto inTime =
            static_cast<std::size_t>(std::chrono::milliseconds(settings.writeTimeoutMs) / line->byteTime());
        const std::size_t count = isOpened && !line->cancelled ? std::min({size, inTime, line->writable}) : 0;
        const ScriptedLine::Bytes request(buffer, buffer + count);
        if (count == 0) {
            return 0;
        }
        line->now = line->sent = line->now + count * line->byteTime();
        line->requests.push_back(request);
        for (const std::uint8_t byte : line->echo ? request : ScriptedLine::Bytes()) {
            line->input.emplace_back(line->now, byte);
        }
        line->deliver(line->device(request));
        return count;
    }
    std::size_t read(std::uint8_t* buffer, std::size_t size) override
    {
        const bool waits = isOpened && !line->cancelled;
        const auto limit = line->now + std::chrono::milliseconds(waits ? settings.readTimeoutMs : 1);
        std::size_t count = 0;
        for (; waits && count < size && !line->input.empty() && line->input.front().first <= limit; ++count) {
            line->now = std::max(line->now, line->input.front().first);
            buffer[count] = line->input.front().second;
            line->input.pop_front();
        }
        if (count < size) {
            line->now = limit;
        }
        return count;
    }
    bool applySettings() override { return isOpened; }
    bool applyTimeouts() override { return isOpened; }

private:
    std::shared_ptr<ScriptedLine> line;
    bool isOpened = false;
};
