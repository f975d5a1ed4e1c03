#include "tools/devicesim/DeviceReport.h"

#include "tools/devicesim/WireFormat.h"

#include <QCryptographicHash>
#include <QJsonArray>

#include <algorithm>

namespace devicesim
{

namespace
{

QString hex(std::size_t number, int digits)
{
    return QString("0x%1").arg(number, digits, 16, QLatin1Char('0'));
}

QJsonValue number(std::uint64_t value)
{
    return static_cast<qint64>(value);
}

QJsonObject toJson(const RequestRecord& record)
{
    return {
        {"ms", static_cast<double>(record.time.count()) / 1000},
        {"command", commandName(record.command)},
        {"address", hex(record.address, 4)},
        {"count", hex(record.count, 4)},
        {"status", hex(record.status, 2)},
        {"faults", QString::fromStdString(record.faults)},
    };
}

QJsonObject summaryOf(std::span<const std::uint8_t> memory)
{
    const auto isUsed = [](std::uint8_t byte) { return byte != 0xFF; };
    const QByteArray bytes(reinterpret_cast<const char*>(memory.data()), static_cast<qsizetype>(memory.size()));
    const QByteArray hash = QCryptographicHash::hash(bytes, QCryptographicHash::Sha256);
    QJsonObject summary = {
        {"sha256", QString::fromLatin1(hash.toHex())},
        {"usedBytes", static_cast<qint64>(std::ranges::count_if(memory, isUsed))},
    };
    const auto first = std::ranges::find_if(memory, isUsed);
    if (first != memory.end()) {
        const auto last = std::find_if(memory.rbegin(), memory.rend(), isUsed);
        summary.insert("firstUsed", hex(static_cast<std::size_t>(first - memory.begin()), 4));
        summary.insert("lastUsed", hex(static_cast<std::size_t>(memory.rend() - last - 1), 4));
    }
    return summary;
}

} // namespace

QString RequestRecord::toLine() const
{
    const QString line = QString::asprintf("%10.3f ms  %-11s  0x%04x 0x%04x -> 0x%02x",
        static_cast<double>(time.count()) / 1000, commandName(command), address, count, status);
    return faults.empty() ? line : line + "  " + QString::fromStdString(faults);
}

void DeviceReport::add(const RequestRecord& record)
{
    ++requestCounts[record.command];
    requests.push_back(record);
    if (requests.size() > keptRequests) {
        requests.pop_front();
    }
}

QJsonObject DeviceReport::toJson(std::span<const std::uint8_t> memory) const
{
    QJsonObject counts;
    for (const auto& [command, count] : requestCounts) {
        counts.insert(QLatin1String(commandName(command)), number(count));
    }
    QJsonArray list;
    for (const RequestRecord& record : requests) {
        list.append(devicesim::toJson(record));
    }
    return {
        {"requestCounts", counts},
        {"lastRequests", list},
        {"wrongChecksums", number(wrongChecksums)},
        {"abandonedRequests", number(abandonedRequests)},
        {"lostBytes", number(lostBytes)},
        {"bytesReceived", number(bytesReceived)},
        {"bytesSent", number(bytesSent)},
        {"overrunBytes", number(overrunBytes)},
        {"resets", number(resets)},
        {"hungUp", hungUp},
        {"memory", summaryOf(memory)},
    };
}

} // namespace devicesim
