#include "tools/fwpack/FaultFinder.h"

#include "firmware/MemoryImage.h"
#include "firmware/QAESEncryption.h"
#include "tools/fwpack/HeaderReport.h"
#include "tools/fwpack/LogCapture.h"
#include "tools/fwpack/Package.h"

#include <QBuffer>
#include <QJsonDocument>
#include <QJsonObject>

#include <algorithm>

namespace fwpack
{

namespace
{

constexpr qsizetype blockLength = 16;

QString jsonFault(const QByteArray& content, const QJsonParseError& error)
{
    return QString("JSON: %1 at offset %2, in line %3")
        .arg(error.errorString())
        .arg(error.offset)
        .arg(content.left(error.offset).count('\n') + 1);
}

bool isBase64(QChar character)
{
    const char16_t code = character.unicode();
    return (code >= 'A' && code <= 'Z') || (code >= 'a' && code <= 'z') || (code >= '0' && code <= '9') ||
           code == '+' || code == '/';
}

/// Tells of characters that the Base64 reader skips, line ends and padding aside.
QStringList skippedCharacters(const QString& base64)
{
    const auto skipped = [](QChar character) {
        return !isBase64(character) && !QStringView(u"=\r\n\t ").contains(character);
    };
    const auto first = std::find_if(base64.begin(), base64.end(), skipped);
    if (first == base64.end()) {
        return {};
    }
    return {QString("Base64: %1 skipped that are none of its characters, the first at position %2")
                .arg(std::count_if(first, base64.end(), skipped))
                .arg(first - base64.begin())};
}

/// The position of the first byte that cannot stand in Intel HEX, or -1.
qsizetype firstNoise(const QByteArray& text)
{
    const auto isNoise = [](char character) {
        return (character < ' ' || character > '~') && !QByteArrayView("\r\n\t").contains(character);
    };
    const auto noise = std::find_if(text.begin(), text.end(), isNoise);
    return noise == text.end() ? -1 : noise - text.begin();
}

/// Why the reader of Intel HEX rejects a text; empty if it does not.
QString hexFault(QByteArray text)
{
    const LogCapture log;
    QBuffer buffer(&text);
    buffer.open(QIODevice::ReadOnly);
    if (MemoryImage().readIntelHex(buffer)) {
        return {};
    }
    return "Intel HEX: " + (log.messages.isEmpty() ? "rejected" : log.messages.last());
}

QStringList cipherTextFaults(const QByteArray& cipherText)
{
    if (cipherText.size() < blockLength) {
        return {QString("cipher text: %1 bytes, less than one block of %2").arg(cipherText.size()).arg(blockLength)};
    }
    if (cipherText.size() % blockLength != 0) {
        return {QString("cipher text: %1 bytes, no whole number of blocks of %2: cut short or damaged")
                    .arg(cipherText.size())
                    .arg(blockLength)};
    }

    QAESEncryption cipher(QAESEncryption::Aes128, QAESEncryption::Ecb, QAESEncryption::Iso);
    const QByteArray decrypted = cipher.decode(cipherText, packageKey, {});
    const QByteArray text = cipher.removePadding(decrypted);
    const QString rejection = hexFault(text);
    if (rejection.isEmpty()) {
        return {};
    }
    QStringList faults{rejection};
    if (const qsizetype noise = firstNoise(text); noise >= 0) {
        faults << QString("decryption: byte %1 of the text is none of Intel HEX, in cipher block %2 of %3: %4")
                      .arg(noise + 1)
                      .arg(noise / blockLength + 1)
                      .arg(cipherText.size() / blockLength)
                      .arg(noise < blockLength ? "another key, or damaged" : "damaged");
    }
    if (text.size() == decrypted.size()) {
        faults << "padding: no marker 0x80 at the end: another key, cut short, or damaged";
    }
    return faults;
}

QStringList imageFaults(const QJsonValue& image)
{
    if (image.isUndefined()) {
        return {"image: missing"};
    }
    if (!image.isString()) {
        return {"image: " + typeName(image) + ", not a string"};
    }
    const QString base64 = image.toString();
    const QStringList faults = cipherTextFaults(QByteArray::fromBase64(base64.toLocal8Bit()));
    return faults.isEmpty() ? faults : faults + skippedCharacters(base64);
}

} // namespace

QStringList findFaults(const QByteArray& content)
{
    if (content.isEmpty()) {
        return {"the file is empty"};
    }
    QJsonParseError error;
    const QJsonDocument document = QJsonDocument::fromJson(content, &error);
    if (error.error != QJsonParseError::NoError) {
        return {jsonFault(content, error)};
    }
    if (!document.isObject()) {
        return {"JSON: the top level is an array, not an object"};
    }
    const QJsonObject root = document.object();
    if (!root.contains("header")) {
        return {"header: missing"};
    }
    return imageFaults(root.value("image"));
}

} // namespace fwpack
