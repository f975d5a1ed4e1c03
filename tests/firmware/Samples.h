#pragma once

#include "tests/support/IntelHex.h"

#include <QByteArray>
#include <QRandomGenerator>
#include <QTest>

#include <memory>

#include <openssl/evp.h>

inline QByteArray randomBytes(QRandomGenerator& random, qsizetype length)
{
    QByteArray bytes(length, '\0');
    random.generate(bytes.begin(), bytes.end());
    return bytes;
}

/// Encrypts with libcrypto, without padding. `cipher` is a name such as "AES-128-ECB".
inline QByteArray encrypted(const char* cipher, const QByteArray& key, const QByteArray& iv, const QByteArray& plain)
{
    const auto bytes = [](const QByteArray& array) { return reinterpret_cast<const uchar*>(array.data()); };
    const std::unique_ptr<EVP_CIPHER_CTX, void (*)(EVP_CIPHER_CTX*)> context(EVP_CIPHER_CTX_new(), EVP_CIPHER_CTX_free);
    QByteArray result(plain.size(), '\0');
    int length = 0;
    EVP_EncryptInit_ex(context.get(), EVP_get_cipherbyname(cipher), nullptr, bytes(key), bytes(iv));
    EVP_CIPHER_CTX_set_padding(context.get(), 0);
    EVP_EncryptUpdate(context.get(), reinterpret_cast<uchar*>(result.data()), &length, bytes(plain), int(plain.size()));
    return result;
}

/// A row of test data.
template <typename... Values>
void row(const char* name, const Values&... values)
{
    (QTest::newRow(name) << ... << values);
}
