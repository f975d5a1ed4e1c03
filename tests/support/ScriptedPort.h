#pragma once

#include "serial/SerialPort.h"

#include <QDeadlineTimer>

#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <string>
#include <vector>

/// A line and the device at its far end, played in a time of its own: nothing sleeps, and what takes time on a real
/// line (10 bits a byte each way, a read that finds silence) moves `now` instead. Outlives the port, so that a test can
/// look at it after the owner of the port is gone. Used by one thread; `cancelled` alone may be set from another.
struct ScriptedLine {
    using Bytes = std::vector<std::uint8_t>;

    /// What the device sends, and how long after the last byte of the request. No bytes: it keeps silent.
    struct Reply {
        Bytes bytes;
        std::chrono::milliseconds after{0};
    };

    /// A whole, good data reply that carries `data`, an even number of bytes.
    static Reply dataReply(const Bytes& data);

    /// Lets bytes come in, one after the other at the speed of the line, the first of them `after` from now.
    void deliver(const Reply& reply);

    /// The clock of this line, for a client under test. Valid as long as the line.
    std::function<QDeadlineTimer()> clock();

    /// What the device makes of a request. Called with each write that sent anything; may change the line.
    std::function<Reply(const Bytes& request)> device = [](const Bytes&) { return Reply{}; };

    /// The line sends back what is written, ahead of the reply.
    bool echo = false;
    /// A write sends no more than this.
    std::size_t writable = SIZE_MAX;
    /// Not empty: `open` fails with this text.
    std::wstring openError;

    /// Set by a cancel, taken back by `open`. Transfers then end with nothing after a millisecond on the line.
    std::atomic<bool> cancelled = false;

    /// What was written, one entry a write.
    std::vector<Bytes> requests;
    /// The settings of the last `open`.
    PortSettings opened;
    /// Time on the line, and the moment at which the last write had left.
    std::chrono::microseconds now{0};
    std::chrono::microseconds sent{0};
    /// 10 bits at the rate of the last `open`.
    std::chrono::microseconds byteTime{1};

    /// Bytes on their way in, with the moment of their arrival.
    struct Arrival {
        std::chrono::microseconds due;
        std::uint8_t byte;
    };
    std::deque<Arrival> input;
};

/// A port on a `ScriptedLine`.
class ScriptedPort : public SerialPort
{
public:
    explicit ScriptedPort(std::shared_ptr<ScriptedLine> scriptedLine);

    bool open() override;
    void close() override { isOpened = false; }
    bool isOpen() const override { return isOpened; }
    void cancel() override { line->cancelled = true; }
    std::wstring errorString() const override { return line->openError; }
    bool purge(bool receive, bool transmit) override;
    std::uint32_t bytesAvailable() const override;
    std::size_t write(const std::uint8_t* buffer, std::size_t size) override;
    std::size_t read(std::uint8_t* buffer, std::size_t size) override;
    bool applySettings() override { return isOpened; }
    bool applyTimeouts() override { return isOpened; }

private:
    std::shared_ptr<ScriptedLine> line;
    bool isOpened = false;
};
