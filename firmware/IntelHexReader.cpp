#include "firmware/IntelHexFault.h"
#include "firmware/MemoryImage.h"

#include <QByteArray>
#include <QIODevice>
#include <QMessageLogger>

#include <algorithm>
#include <array>
#include <numeric>

namespace
{

/// Bytes of a record besides its data: the count, two of the offset, the type, the checksum.
constexpr int recordOverhead = 5;

enum RecordType : std::uint8_t {
    Data = 0x00,
    EndOfFile = 0x01,
    ExtendedSegmentAddress = 0x02,
    StartSegmentAddress = 0x03,
    ExtendedLinearAddress = 0x04,
};

/// Takes Intel HEX records, line by line, into an image.
class IntelHexReader
{
public:
    IntelHexReader(MemoryImage& memoryImage, IntelHexFaults& foundFaults)
        : image(memoryImage)
        , faults(foundFaults)
    {
    }

    /// Takes the next line, with or without its line end.
    /// @return false when the line is rejected
    bool takeLine(const QByteArray& line)
    {
        ++lineNumber;
        if (!line.startsWith(':')) {
            return reject(IntelHexFault::NoRecord);
        }
        const QByteArray record = QByteArray::fromHex(line); // passes over the colon, too
        const auto* const bytes = reinterpret_cast<const std::uint8_t*>(record.constData());
        if (record.size() < recordOverhead || record.size() < recordOverhead + bytes[0]) {
            return reject(IntelHexFault::TooShort);
        }
        if (std::accumulate(bytes, bytes + record.size(), 0U) % 0x100 != 0) {
            return reject(IntelHexFault::InvalidChecksum);
        }
        if (const auto surplus = static_cast<int>(record.size()) - recordOverhead - bytes[0]; surplus > 0) {
            note(IntelHexFault::SurplusBytes, surplus);
        }
        if (endOfFileLine != 0 && endOfFileLine == lineNumber - 1) {
            note(IntelHexFault::BehindEndOfFile);
        }
        act(bytes);
        return true;
    }

    void finish()
    {
        if (endOfFileLine == 0) {
            faults.push_back({IntelHexFault::NoEndOfFile});
        }
    }

private:
    /// @param record a whole record
    void act(const std::uint8_t* record)
    {
        const std::uint8_t count = record[0];
        const std::uint8_t type = record[3];
        switch (type) {
        case Data:
            insert(base + word(record + 1), record + 4, count);
            break;
        case EndOfFile:
            endOfFileLine = lineNumber;
            break;
        case ExtendedSegmentAddress:
        case ExtendedLinearAddress:
            if (word(record + 1) == 0 && count == 2) {
                base = word(record + 4) << (type == ExtendedSegmentAddress ? 4 : 16);
            } else {
                note(IntelHexFault::MalformedAddress);
            }
            break;
        case StartSegmentAddress:
            break;
        default:
            note(IntelHexFault::UnsupportedType, type);
            break;
        }
    }

    void insert(std::uint32_t address, const std::uint8_t* bytes, std::uint8_t count)
    {
        image.insert(address, bytes, count);
        if (std::uint64_t{address} + count > std::uint64_t{1} << 32) {
            note(IntelHexFault::CrossesTop);
        }
    }

    /// The 16-bit number at `bytes`, high byte first.
    static std::uint32_t word(const std::uint8_t* bytes) { return std::uint32_t{bytes[0]} << 8 | bytes[1]; }

    void note(IntelHexFault::Kind kind, int value = 0) { faults.push_back({kind, lineNumber, value}); }

    bool reject(IntelHexFault::Kind kind)
    {
        note(kind);
        return false;
    }

    MemoryImage& image;
    IntelHexFaults& faults;
    std::uint32_t base = 0;
    int lineNumber = 0;
    /// The last end-of-file record; 0 if there was none.
    int endOfFileLine = 0;
};

/// Reads a line of any length, with its line end. `QIODevice::readLine` without a buffer of the caller's allocates 16
/// KiB for each.
void readLine(QIODevice& device, QByteArray& line)
{
    std::array<char, 1024> part{};
    constexpr auto longestPart = static_cast<qint64>(part.size()) - 1;
    qint64 length = 0;
    line.resize(0);
    do {
        length = device.readLine(part.data(), longestPart + 1);
        line.append(part.data(), std::max<qint64>(length, 0));
    } while (length == longestPart && !line.endsWith('\n'));
}

const char* formatOf(IntelHexFault::Kind kind)
{
    switch (kind) {
    case IntelHexFault::NoRecord:
        return "line:%.4d is not intel-hex";
    case IntelHexFault::TooShort:
        return "line:%.4d too short";
    case IntelHexFault::InvalidChecksum:
        return "line:%.4d invalid checksum";
    case IntelHexFault::UnsupportedType:
        return "line:%.4d unsupported type: 0x%.2X";
    case IntelHexFault::SurplusBytes:
        return "line:%.4d holds %d bytes more than its count says";
    case IntelHexFault::MalformedAddress:
        return "line:%.4d extended address with a count other than 2 or an offset other than 0";
    case IntelHexFault::CrossesTop:
        return "line:%.4d runs beyond address 0xFFFFFFFF and on from address 0";
    case IntelHexFault::BehindEndOfFile:
        return "line:%.4d stands behind the end-of-file record, and is read all the same";
    case IntelHexFault::NoEndOfFile:
        break;
    }
    return "no end-of-file record: the file may be cut short";
}

} // namespace

QString IntelHexFault::text() const
{
    return QString::asprintf(formatOf(kind), line, value);
}

QStringList describeFaults(const IntelHexFaults& faults)
{
    constexpr std::size_t limit = 20;
    QStringList texts;
    for (std::size_t i = 0; i < std::min(faults.size(), limit); ++i) {
        texts << faults[i].text();
    }
    if (faults.size() > limit) {
        texts << QStringLiteral("%1 further warnings").arg(faults.size() - limit);
    }
    return texts;
}

void logFaults(const IntelHexFaults& faults)
{
    for (const IntelHexFault& fault : faults) {
        if (fault.rejectsLine() || fault.kind == IntelHexFault::UnsupportedType) {
            QMessageLogger().critical("%s", qPrintable(fault.text()));
        }
    }
}

bool MemoryImage::readIntelHex(QIODevice& device)
{
    IntelHexFaults faults;
    const bool accepted = readIntelHex(device, faults);
    logFaults(faults);
    return accepted;
}

bool MemoryImage::readIntelHex(QIODevice& device, IntelHexFaults& faults)
{
    clear();
    IntelHexReader reader(*this, faults);
    QByteArray line;
    while (!device.atEnd()) {
        readLine(device, line);
        if (!reader.takeLine(line)) {
            return false;
        }
    }
    reader.finish();
    return true;
}
