#include "tools/fwpack/Package.h"

#include <QJsonDocument>
#include <QJsonObject>

#include <memory>

#include <openssl/evp.h>

namespace fwpack
{

namespace
{

constexpr qsizetype blockLength = FirmwareFile::cipherBlockLength;

struct CipherContextDeleter {
    void operator()(EVP_CIPHER_CTX* context) const { EVP_CIPHER_CTX_free(context); }
};

/// Pads by ISO/IEC 7816-4: the marker 0x80 always, then zeros up to a whole number of blocks.
QByteArray padded(QByteArray text)
{
    text.append('\x80');
    text.append((blockLength - text.size() % blockLength) % blockLength, '\0');
    return text;
}

/// AES-128 in ECB mode over a whole number of blocks; empty if libcrypto refuses.
QByteArray encrypted(const QByteArray& text)
{
    const auto bytes = [](const char* data) { return reinterpret_cast<const unsigned char*>(data); };
    const std::unique_ptr<EVP_CIPHER_CTX, CipherContextDeleter> context(EVP_CIPHER_CTX_new());
    QByteArray cipherText(text.size(), Qt::Uninitialized);
    int length = 0;
    if (!context ||
        EVP_EncryptInit_ex(context.get(), EVP_aes_128_ecb(), nullptr, bytes(FirmwareFile::imageKey), nullptr) != 1 ||
        EVP_CIPHER_CTX_set_padding(context.get(), 0) != 1 ||
        EVP_EncryptUpdate(context.get(), reinterpret_cast<unsigned char*>(cipherText.data()), &length,
            bytes(text.constData()), static_cast<int>(text.size())) != 1 ||
        length != text.size()) {
        return {};
    }
    return cipherText;
}

} // namespace

QByteArray makePackage(const PackageHeader& header, const QByteArray& hexText)
{
    const QByteArray cipherText = encrypted(padded(hexText));
    if (cipherText.isEmpty()) {
        return {};
    }
    const QJsonObject headerObject{
        {"device", int(header.device)},
        {"version", header.version},
        {"target", header.target},
        {"baudrate", header.baudrate},
        {"link", header.link},
    };
    const QJsonObject root{{"header", headerObject}, {"image", QString::fromLatin1(cipherText.toBase64())}};
    return QJsonDocument(root).toJson();
}

} // namespace fwpack
