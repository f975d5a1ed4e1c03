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

constexpr qsizetype cipherBlockLength = 16;

/// The key of all firmware files.
QByteArray imageKey()
{
    return QByteArrayLiteral("v9!Tq#Lz4$Ym7^Bx");
}

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

} // namespace

bool FirmwareFile::load(const QString& path)
{
    // Opening a FIFO waits for its other end, and some devices can be read forever.
    if (const QFileInfo info(path); info.exists() && !info.isFile() && !info.isDir()) {
        return fail(QStringLiteral("Not a regular file"));
    }
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly)) {
        return fail(file.errorString());
    }
    const QByteArray content = file.read(maxFileSize + 1);
    if (file.error() != QFileDevice::NoError) {
        return fail(file.errorString());
    }
    if (content.size() > maxFileSize) {
        return fail(QStringLiteral("File too large"));
    }
    const bool loaded = parse(content);
    logFaults(hexFaults);
    return loaded;
}

bool FirmwareFile::parse(const QByteArray& content)
{
    QJsonParseError error;
    const QJsonObject root = QJsonDocument::fromJson(content, &error).object();
    if (error.error != QJsonParseError::NoError) {
        return fail(error.errorString());
    }
    if (!root.contains(QLatin1String("header"))) {
        return fail(QStringLiteral("Invalid format"));
    }
    takeHeader(root.value(QLatin1String("header")).toObject());
    return decryptImage(QByteArray::fromBase64(root.value(QLatin1String("image")).toString().toLocal8Bit()));
}

void FirmwareFile::takeHeader(const QJsonObject& header)
{
    device = static_cast<std::uint16_t>(header.value(QLatin1String("device")).toInt(0));
    version = header.value(QLatin1String("version")).toString();
    target = header.value(QLatin1String("target")).toString();
    baudrate = header.value(QLatin1String("baudrate")).toInt(57600);
    link = header.value(QLatin1String("link")).toInt(0);
}

bool FirmwareFile::decryptImage(const QByteArray& cipherText)
{
    if (cipherText.size() < cipherBlockLength || cipherText.size() % cipherBlockLength != 0) {
        return fail(QStringLiteral("Invalid format"));
    }
    QAESEncryption aes(QAESEncryption::Aes128, QAESEncryption::Ecb, QAESEncryption::Iso);
    QByteArray text = aes.removePadding(aes.decode(cipherText, imageKey(), {}));
    isPadded = text.size() < cipherText.size();
    TextBuffer buffer(&text);
    buffer.open(QIODevice::ReadOnly);
    return image.readIntelHex(buffer, hexFaults) || fail(QStringLiteral("Wrong firmware file"));
}

bool FirmwareFile::fail(const QString& reason)
{
    errorText = reason;
    return false;
}
