#include "tools/fwpack/HexInput.h"

#include "firmware/BlockScanner.h"
#include "firmware/BurnLimits.h"
#include "tools/fwpack/LogCapture.h"
#include "tools/fwpack/Printable.h"

#include <QBuffer>
#include <QFile>

namespace fwpack
{

namespace
{

constexpr qint64 mib = qint64{1024} * 1024;
/// Far above any image that can be burned, and as firmware file still within what the program loads; keeps an endless
/// input from filling the memory.
constexpr qint64 maximumFileSize = 64 * mib;

enum RecordType : std::uint8_t {
    EndOfFile = 0x01,
    ExtendedSegmentAddress = 0x02,
    ExtendedLinearAddress = 0x04,
};

/// In the style of the reader's own messages.
QString lineMessage(int number, const QString& text)
{
    return QString("line:%1 %2").arg(number, 4, 10, QChar('0')).arg(text);
}

} // namespace

bool HexInput::load(const QString& path)
{
    if (!readFile(path)) {
        return false;
    }
    normalise();
    if (!readImage() || !checkRecords()) {
        return false;
    }
    if (BlockScanner scanner(image); !scanner.next(4)) {
        return fail("holds no data");
    }
    checkAddresses();
    return true;
}

bool HexInput::readFile(const QString& path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly)) {
        return fail(file.errorString());
    }
    text = file.read(maximumFileSize + 1);
    if (file.error() != QFileDevice::NoError) {
        return fail(file.errorString());
    }
    if (text.size() > maximumFileSize) {
        return fail(QString("is larger than %1 MiB").arg(maximumFileSize / mib));
    }
    return true;
}

void HexInput::normalise()
{
    text.replace("\r\n", "\n");
    qsizetype used = text.size();
    while (used > 0 && QByteArrayView("\n\r\t ").contains(text[used - 1])) {
        --used;
    }
    const qsizetype blankLines = text.mid(used).count('\n') - 1;
    text.truncate(used);
    if (used > 0) {
        text.append('\n');
    }
    if (blankLines > 0) {
        warnings.append(QString("blank lines at the end left out: %1").arg(blankLines));
    }
}

bool HexInput::readImage()
{
    const LogCapture log;
    QBuffer buffer(&text);
    buffer.open(QIODevice::ReadOnly);
    const bool accepted = image.readIntelHex(buffer);
    warnings += log.messages;
    if (accepted) {
        return true;
    }
    return fail(warnings.isEmpty() ? "is not Intel HEX" : warnings.takeLast());
}

/// Looks for what the reader passes over in silence although it cannot be meant, in a text that it has accepted.
bool HexInput::checkRecords()
{
    constexpr qsizetype recordOverhead = 5;
    int number = 0;
    int endOfFile = 0;
    for (qsizetype start = 0; start < text.size();) {
        const qsizetype end = text.indexOf('\n', start);
        const QByteArray record =
            QByteArray::fromHex(QByteArrayView(text).sliced(start + 1, end - start - 1).toByteArray());
        start = end + 1;
        ++number;

        const auto byteAt = [&record](qsizetype i) { return static_cast<std::uint8_t>(record[i]); };
        const qsizetype surplus = record.size() - recordOverhead - byteAt(0);
        const bool placesBase = byteAt(3) == ExtendedSegmentAddress || byteAt(3) == ExtendedLinearAddress;
        if (surplus > 0) {
            return fail(lineMessage(number, QString("holds %1 bytes more than its count says").arg(surplus)));
        }
        if (placesBase && (byteAt(0) != 2 || byteAt(1) != 0 || byteAt(2) != 0)) {
            return fail(lineMessage(number, "extended address with a count other than 2 or an offset other than 0"));
        }
        if (endOfFile == number - 1 && endOfFile > 0) {
            warnings.append(lineMessage(number, "stands behind the end-of-file record, and is read all the same"));
        }
        if (byteAt(3) == EndOfFile) {
            endOfFile = number;
        }
    }
    if (endOfFile == 0) {
        warnings.append("no end-of-file record: the file may be cut short");
    }
    return true;
}

void HexInput::checkAddresses()
{
    if (const auto address = firstAddressOutOfReach(image)) {
        warnings.append(QString("data at %1 lies above %2: the firmware file cannot be burned")
                            .arg(hexNumber(*address), hexNumber(lastBurnAddress)));
    }
}

bool HexInput::fail(const QString& reason)
{
    errorText = reason;
    return false;
}

} // namespace fwpack
