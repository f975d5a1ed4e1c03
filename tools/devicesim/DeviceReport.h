#pragma once

#include <QJsonObject>
#include <QString>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <map>
#include <span>
#include <string>

namespace devicesim
{

/// One request that the device understood, and what became of it.
struct RequestRecord {
    /// Since the start of the device, when the last byte of the request had arrived.
    std::chrono::microseconds time{0};
    std::uint8_t command = 0;
    std::uint16_t address = 0;
    std::uint16_t count = 0;
    /// First byte of the reply that the device meant to give; 0 if it gave none.
    std::uint8_t status = 0;
    /// Names of the faults that hit it, separated by commas.
    std::string faults;

    /// For example "    12.345 ms  write        0x3100 0x0100 -> 0x90  flip".
    QString toLine() const;
};

/// What the device has seen and done.
struct DeviceReport {
    /// Requests beyond this number push the oldest ones out of `requests`.
    static constexpr std::size_t keptRequests = 10000;

    void add(const RequestRecord& record);

    /// The report as an object, with a summary of the memory.
    QJsonObject toJson(std::span<const std::uint8_t> memory) const;

    std::deque<RequestRecord> requests;
    /// Requests by command, kept or not.
    std::map<std::uint8_t, std::uint64_t> requestCounts;
    /// Requests with a wrong checksum, which get no reply.
    std::uint64_t wrongChecksums = 0;
    /// Requests that were cut off by silence.
    std::uint64_t abandonedRequests = 0;
    /// Bytes that a fault took out of requests.
    std::uint64_t lostBytes = 0;
    std::uint64_t bytesReceived = 0;
    std::uint64_t bytesSent = 0;
    /// Bytes for which the host's input queue had no room.
    std::uint64_t overrunBytes = 0;
    std::uint64_t resets = 0;
    bool hungUp = false;
};

} // namespace devicesim
