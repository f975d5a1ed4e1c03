#include "firmware/MemoryImage.h"

#include <QByteArray>
#include <QByteArrayView>
#include <QIODevice>
#include <QMessageLogger>

#include <numeric>
#include <span>
#include <vector>

namespace
{

constexpr std::uint8_t noDigit = 0xFF;

constexpr std::array<std::uint8_t, 256> makeHexValues()
{
    std::array<std::uint8_t, 256> values{};
    values.fill(noDigit);
    for (std::uint8_t i = 0; i < 16; ++i) {
        values[static_cast<std::uint8_t>("0123456789abcdef"[i])] = i;
        values[static_cast<std::uint8_t>("0123456789ABCDEF"[i])] = i;
    }
    return values;
}

/// The value of each character as a hexadecimal digit; `noDigit` for one that is none.
constexpr std::array<std::uint8_t, 256> hexValues = makeHexValues();

/// Bytes of a record besides its data: the count, two of the offset, the type, the checksum.
constexpr std::size_t recordOverhead = 5;

enum class RecordType : std::uint8_t {
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
    explicit IntelHexReader(MemoryImage& memoryImage)
        : image(memoryImage)
    {
    }

    /// Takes the next line, with or without its line end.
    /// @return false when the line is rejected, which the log then tells
    bool takeLine(QByteArrayView line)
    {
        ++lineNumber;
        if (!line.startsWith(':')) {
            QMessageLogger().critical("line:%.4d is not intel-hex", lineNumber);
            return false;
        }
        const std::span<const std::uint8_t> record = decodeHex(line.sliced(1));
        if (record.size() < recordOverhead || record.size() < recordOverhead + record[0]) {
            QMessageLogger().critical("line:%.4d too short", lineNumber);
            return false;
        }
        if (std::accumulate(record.begin(), record.end(), 0U) % 0x100 != 0) {
            QMessageLogger().critical("line:%.4d invalid checksum", lineNumber);
            return false;
        }
        act(record);
        return true;
    }

private:
    /// Decodes as `QByteArray::fromHex` does: pairs the digits from the end and passes over all other characters. A
    /// single first digit makes a byte of its own. What comes back is valid until the next call.
    std::span<const std::uint8_t> decodeHex(QByteArrayView text)
    {
        decoded.resize(static_cast<std::size_t>(text.size() + 1) / 2);
        std::size_t begin = decoded.size();
        bool lowDigit = true;
        for (qsizetype i = text.size(); i > 0; --i) {
            const std::uint8_t digit = hexValues[static_cast<std::uint8_t>(text[i - 1])];
            if (digit == noDigit) {
                continue;
            }
            if (lowDigit) {
                decoded[--begin] = digit;
            } else {
                decoded[begin] = static_cast<std::uint8_t>(decoded[begin] | digit << 4);
            }
            lowDigit = !lowDigit;
        }
        return std::span(decoded).subspan(begin);
    }

    void act(std::span<const std::uint8_t> record)
    {
        const std::uint8_t count = record[0];
        const std::uint32_t offset = std::uint32_t{record[1]} << 8 | record[2];
        const std::uint8_t type = record[3];
        const std::uint8_t* const bytes = record.data() + 4;
        const bool isAddress = offset == 0 && count == 2;
        const auto upperAddress = [bytes] { return std::uint32_t{bytes[0]} << 8 | bytes[1]; };
        switch (RecordType{type}) {
        case RecordType::Data:
            image.insert(base + offset, bytes, count);
            break;
        case RecordType::ExtendedSegmentAddress:
            base = isAddress ? upperAddress() << 4 : base;
            break;
        case RecordType::ExtendedLinearAddress:
            base = isAddress ? upperAddress() << 16 : base;
            break;
        case RecordType::EndOfFile:
        case RecordType::StartSegmentAddress:
            break;
        default:
            QMessageLogger().critical("line:%.4d unsupported type: 0x%.2X", lineNumber, int{type});
            break;
        }
    }

    MemoryImage& image;
    std::uint32_t base = 0;
    int lineNumber = 0;
    std::vector<std::uint8_t> decoded;
};

} // namespace

// The lines are cut out of large chunks, since QIODevice::readLine asks an unbuffered device for every single byte.
bool MemoryImage::readIntelHex(QIODevice& device)
{
    constexpr qint64 chunkLength = qint64{64} * 1024;
    clear();
    IntelHexReader reader(*this);
    QByteArray text;
    QByteArray chunk(chunkLength, Qt::Uninitialized);
    qint64 received = 0;
    while ((received = device.read(chunk.data(), chunkLength)) > 0) {
        qsizetype searchFrom = text.size();
        text.append(chunk.constData(), received);
        qsizetype lineBegin = 0;
        for (qsizetype lineEnd = 0; (lineEnd = text.indexOf('\n', searchFrom)) >= 0; searchFrom = lineBegin) {
            if (!reader.takeLine(QByteArrayView(text).sliced(lineBegin, lineEnd - lineBegin))) {
                return false;
            }
            lineBegin = lineEnd + 1;
        }
        text.remove(0, lineBegin);
    }
    if (received < 0 && !device.atEnd()) {
        return false;
    }
    return text.isEmpty() || reader.takeLine(text);
}
