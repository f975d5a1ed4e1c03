#include "tools/devicesim/DeviceReport.h"

#include "tools/devicesim/WireFormat.h"

#include <QCryptographicHash>
#include <QJsonArray>

#include <algorithm>
#include <array>
#include <cstdio>
#include <iterator>

namespace devicesim
{

namespace
{

QString hex(std::size_t number, int digits)
{
    return QStringLiteral("0x%1").arg(number, digits, 16, QLatin1Char('0'));
}

QJsonValue number(std::uint64_t value)
{
    return static_cast<qint64>(value);
}

QJsonObject toJson(const RequestRecord& record)
{
    return {{QStringLiteral("ms"), static_cast<double>(record.time.count()) / 1000},
        {QStringLiteral("command"), QString::fromLatin1(commandName(record.command))},
        {QStringLiteral("address"), hex(record.address, 4)}, {QStringLiteral("count"), hex(record.count, 4)},
        {QStringLiteral("status"), hex(record.status, 2)},
        {QStringLiteral("faults"), QString::fromStdString(record.faults)}};
}

QJsonObject summaryOf(std::span<const std::uint8_t> memory)
{
    const auto used = [](std::uint8_t byte) { return byte != 0xFF; };
    const QByteArrayView bytes(memory.data(), static_cast<qsizetype>(memory.size()));
    QCryptographicHash hash(QCryptographicHash::Sha256);
    hash.addData(bytes.toByteArray());
    QJsonObject summary = {{QStringLiteral("sha256"), QString::fromLatin1(hash.result().toHex())},
        {QStringLiteral("usedBytes"),
            number(static_cast<std::uint64_t>(std::count_if(memory.begin(), memory.end(), used)))}};
    const auto first = std::find_if(memory.begin(), memory.end(), used);
    if (first != memory.end()) {
        const auto last = std::find_if(memory.rbegin(), memory.rend(), used);
        summary.insert(QStringLiteral("firstUsed"), hex(static_cast<std::size_t>(first - memory.begin()), 4));
        summary.insert(QStringLiteral("lastUsed"), hex(static_cast<std::size_t>(memory.rend() - last - 1), 4));
    }
    return summary;
}

} // namespace

std::string RequestRecord::toLine() const
{
    std::array<char, 128> text = {};
    std::snprintf(text.data(), text.size(), "%10.3f ms  %-11s  0x%04x 0x%04x -> 0x%02x",
        static_cast<double>(time.count()) / 1000, commandName(command), address, count, status);
    std::string line = text.data();
    if (!faults.empty()) {
        line += "  " + faults;
    }
    return line;
}

void DeviceReport::add(const RequestRecord& record)
{
    ++requestCounts[record.command];
    requests.push_back(record);
    if (requests.size() > keptRequests) {
        requests.pop_front();
    }
}

std::uint64_t DeviceReport::countOf(std::uint8_t command) const
{
    const auto entry = requestCounts.find(command);
    return entry != requestCounts.end() ? entry->second : 0;
}

QJsonObject DeviceReport::toJson(std::span<const std::uint8_t> memory) const
{
    QJsonObject counts;
    for (const auto& [command, count] : requestCounts) {
        counts.insert(QString::fromLatin1(commandName(command)), number(count));
    }
    QJsonArray list;
    for (const RequestRecord& record : requests) {
        list.append(devicesim::toJson(record));
    }
    return {{QStringLiteral("requestCounts"), counts}, {QStringLiteral("lastRequests"), list},
        {QStringLiteral("wrongChecksums"), number(wrongChecksums)},
        {QStringLiteral("abandonedRequests"), number(abandonedRequests)},
        {QStringLiteral("lostBytes"), number(lostBytes)}, {QStringLiteral("bytesReceived"), number(bytesReceived)},
        {QStringLiteral("bytesSent"), number(bytesSent)}, {QStringLiteral("overrunBytes"), number(overrunBytes)},
        {QStringLiteral("resets"), number(resets)}, {QStringLiteral("hungUp"), hungUp},
        {QStringLiteral("memory"), summaryOf(memory)}};
}

} // namespace devicesim
