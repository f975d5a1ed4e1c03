#include "firmware/FirmwareFile.h"

#include "firmware/QAESEncryption.h"

#include <QBuffer>
#include <QFile>
#include <QFileInfo>
#include <QJsonDocument>
#include <QJsonObject>

#include <algorithm>

namespace
{

/// A buffer that searches for the end of a line. QIODevice::readLineData asks the device for every single byte.
class TextBuffer : public QBuffer
{
public:
    using QBuffer::QBuffer;

protected:
    qint64 readLineData(char* line, qint64 maxSize) override
    {
        const qint64 end = data().indexOf('\n', pos());
        const qint64 length = (end < 0 ? size() : end + 1) - pos();
        return readData(line, std::min(length, maxSize));
    }
};

QString typeName(const QJsonValue& value)
{
    switch (value.type()) {
    case QJsonValue::Null:
        return QStringLiteral("null");
    case QJsonValue::Bool:
        return QStringLiteral("a boolean");
    case QJsonValue::Double:
        return QStringLiteral("a number");
    case QJsonValue::String:
        return QStringLiteral("a string");
    case QJsonValue::Array:
        return QStringLiteral("an array");
    case QJsonValue::Object:
        return QStringLiteral("an object");
    case QJsonValue::Undefined:
        break;
    }
    return QStringLiteral("missing");
}

/// Tells of the characters that `QByteArray::fromBase64` skips, line ends and padding aside.
QStringList skippedCharacters(const QString& base64)
{
    const auto isSkipped = [](QChar character) {
        const bool isAlphanumeric = character.unicode() < 0x80 && character.isLetterOrNumber();
        return !isAlphanumeric && !QStringView(u"+/=\r\n\t ").contains(character);
    };
    const auto first = std::find_if(base64.begin(), base64.end(), isSkipped);
    if (first == base64.end()) {
        return {};
    }
    return {QStringLiteral("Base64: %1 skipped that are none of its characters, the first at position %2")
                .arg(std::count_if(first, base64.end(), isSkipped))
                .arg(first - base64.begin())};
}

/// Tells of the first byte of a decrypted text that cannot stand in Intel HEX.
QStringList foreignByte(const QByteArray& text, qsizetype blockLength, qsizetype blocks)
{
    const auto isForeign = [](char byte) {
        return (byte < ' ' || byte > '~') && !QByteArrayView("\r\n\t").contains(byte);
    };
    const auto first = std::find_if(text.begin(), text.end(), isForeign);
    if (first == text.end()) {
        return {};
    }
    const qsizetype at = first - text.begin();
    return {QStringLiteral("decryption: byte %1 of the text is none of Intel HEX, in cipher block %2 of %3: %4")
                .arg(at + 1)
                .arg(at / blockLength + 1)
                .arg(blocks)
                .arg(at < blockLength ? QStringLiteral("another key, or damaged") : QStringLiteral("damaged"))};
}

} // namespace

bool FirmwareFile::load(const QString& path)
{
    const bool loaded = read(path);
    logFaults(hexFaults);
    return loaded;
}

bool FirmwareFile::read(const QString& path)
{
    // Opening a FIFO waits for its other end, and some devices can be read forever.
    if (const QFileInfo info(path); info.exists() && !info.isFile() && !info.isDir()) {
        return fail(QStringLiteral("Not a regular file"));
    }
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly)) {
        return fail(file.errorString());
    }
    const QByteArray content = file.read(std::min(file.size(), maxFileSize) + 1);
    if (file.error() != QFileDevice::NoError) {
        return fail(file.errorString());
    }
    if (content.size() > maxFileSize) {
        return fail(QStringLiteral("File too large"));
    }
    return parse(content);
}

bool FirmwareFile::parse(const QByteArray& content)
{
    QJsonParseError error;
    const QJsonDocument document = QJsonDocument::fromJson(content, &error);
    if (error.error != QJsonParseError::NoError) {
        faults << (content.isEmpty() ? QStringLiteral("the file is empty")
                                     : QStringLiteral("JSON: %1 at offset %2, in line %3")
                                           .arg(error.errorString())
                                           .arg(error.offset)
                                           .arg(content.left(error.offset).count('\n') + 1));
        return fail(error.errorString());
    }
    const QJsonObject root = document.object();
    if (!root.contains(QLatin1String("header"))) {
        faults << (document.isArray() ? QStringLiteral("JSON: the top level is an array, not an object")
                                      : QStringLiteral("header: missing"));
        return fail(QStringLiteral("Invalid format"));
    }
    takeHeader(root.value(QLatin1String("header")));
    return takeImage(root.value(QLatin1String("image")));
}

void FirmwareFile::takeHeader(const QJsonValue& value)
{
    if (!value.isObject()) {
        faults << QStringLiteral("header: %1, not an object: nothing in it counts").arg(typeName(value));
    }
    const QJsonObject header = value.toObject();
    const std::int32_t number = takeNumber(header, QStringLiteral("device"), 0);
    device = static_cast<std::uint16_t>(number);
    if (device != number) {
        headerNotes.insert(
            QStringLiteral("device"), QStringLiteral("given as %1, of which the low 16 bits count").arg(number));
    }
    version = takeText(header, QStringLiteral("version"));
    target = takeText(header, QStringLiteral("target"));
    baudrate = takeNumber(header, QStringLiteral("baudrate"), defaultBaudrate);
    link = takeNumber(header, QStringLiteral("link"), 0);
    hasHeader = true;
}

std::int32_t FirmwareFile::takeNumber(const QJsonObject& header, const QString& name, std::int32_t fallback)
{
    const QJsonValue value = header.value(name);
    if (value.isUndefined()) {
        headerNotes.insert(name, QStringLiteral("not given"));
    } else if (!value.isDouble()) {
        headerNotes.insert(name, QStringLiteral("given as %1, which does not count").arg(typeName(value)));
    } else if (value.toInt(0) != value.toInt(1)) {
        headerNotes.insert(
            name, QStringLiteral("given as %1, no whole number of 32 bits").arg(value.toDouble(), 0, 'g', 17));
    }
    return value.toInt(fallback);
}

QString FirmwareFile::takeText(const QJsonObject& header, const QString& name)
{
    const QJsonValue value = header.value(name);
    if (value.isUndefined()) {
        headerNotes.insert(name, QStringLiteral("not given"));
    } else if (!value.isString()) {
        headerNotes.insert(name, QStringLiteral("given as %1, which does not count").arg(typeName(value)));
    }
    return value.toString();
}

bool FirmwareFile::takeImage(const QJsonValue& value)
{
    if (!value.isString()) {
        faults << (value.isUndefined() ? QStringLiteral("image: missing")
                                       : QStringLiteral("image: %1, not a string").arg(typeName(value)));
        return fail(QStringLiteral("Invalid format"));
    }
    const QString base64 = value.toString();
    if (decryptImage(QByteArray::fromBase64(base64.toLocal8Bit()))) {
        return true;
    }
    faults << skippedCharacters(base64);
    return false;
}

bool FirmwareFile::decryptImage(const QByteArray& cipherText)
{
    const qsizetype size = cipherText.size();
    if (size < cipherBlockLength || size % cipherBlockLength != 0) {
        faults << QStringLiteral("cipher text: %1 bytes, no whole number of blocks of %2: cut short or damaged")
                      .arg(size)
                      .arg(cipherBlockLength);
        return fail(QStringLiteral("Invalid format"));
    }
    QAESEncryption aes(QAESEncryption::Aes128, QAESEncryption::Ecb, QAESEncryption::Iso);
    QByteArray text = aes.removePadding(aes.decode(cipherText, QByteArray(imageKey), {}));
    TextBuffer buffer(&text);
    buffer.open(QIODevice::ReadOnly);
    const bool accepted = image.readIntelHex(buffer, hexFaults);
    for (const QString& fault : accepted ? describeFaults(hexFaults) : QStringList(hexFaults.back().text())) {
        faults << QStringLiteral("Intel HEX: ") + fault;
    }
    if (!accepted) {
        faults << foreignByte(text, cipherBlockLength, size / cipherBlockLength);
    }
    if (text.size() == size) {
        faults << QStringLiteral("padding: no marker 0x80 at the end: cut short, damaged, or of another key");
    }
    return accepted || fail(QStringLiteral("Wrong firmware file"));
}

bool FirmwareFile::fail(const QString& reason)
{
    errorText = reason;
    return false;
}
