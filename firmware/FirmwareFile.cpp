#include "firmware/FirmwareFile.h"

#include "firmware/Base64.h"
#include "firmware/QAESEncryption.h"

#include <QBuffer>
#include <QFile>
#include <QFileInfo>
#include <QJsonDocument>
#include <QJsonObject>

#include <utility>

namespace
{

/// Far above what any device holds; keeps a wrong pick in the file dialog from filling the memory.
constexpr qint64 maxFileSize = qint64{128} * 1024 * 1024;

constexpr qsizetype cipherBlockLength = 16;

/// The key of all firmware files.
QByteArray imageKey()
{
    return QByteArrayLiteral("v9!Tq#Lz4$Ym7^Bx");
}

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
    if (file.size() > maxFileSize) {
        return fail(QStringLiteral("File too large"));
    }
    QByteArray content = file.readAll();
    if (file.error() != QFileDevice::NoError) {
        return fail(file.errorString());
    }
    return parse(std::move(content));
}

bool FirmwareFile::parse(QByteArray content)
{
    QJsonParseError error;
    QJsonObject root = QJsonDocument::fromJson(content, &error).object();
    content.clear();
    if (error.error != QJsonParseError::NoError) {
        return fail(error.errorString());
    }
    if (!root.contains(QLatin1String("header"))) {
        return fail(QStringLiteral("Invalid format"));
    }
    takeHeader(root.value(QLatin1String("header")).toObject());

    QString base64 = root.value(QLatin1String("image")).toString();
    root = {};
    QByteArray cipherText = decodeBase64(base64);
    base64.clear();
    return decryptImage(std::move(cipherText));
}

void FirmwareFile::takeHeader(const QJsonObject& header)
{
    device = static_cast<std::uint16_t>(header.value(QLatin1String("device")).toInt(0));
    version = header.value(QLatin1String("version")).toString();
    target = header.value(QLatin1String("target")).toString();
    baudrate = header.value(QLatin1String("baudrate")).toInt(57600);
    link = header.value(QLatin1String("link")).toInt(0);
}

bool FirmwareFile::decryptImage(QByteArray cipherText)
{
    if (cipherText.size() < cipherBlockLength || cipherText.size() % cipherBlockLength != 0) {
        return fail(QStringLiteral("Invalid format"));
    }
    QAESEncryption aes(QAESEncryption::Aes128, QAESEncryption::Ecb, QAESEncryption::Iso);
    QByteArray text = aes.decode(std::move(cipherText), imageKey(), {});
    text = aes.removePadding(std::move(text));
    QBuffer buffer(&text);
    buffer.open(QIODevice::ReadOnly);
    return image.readIntelHex(buffer) || fail(QStringLiteral("Wrong firmware file"));
}

bool FirmwareFile::fail(const QString& reason)
{
    errorText = reason;
    return false;
}
