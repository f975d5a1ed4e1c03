#pragma once

#include <QByteArray>
#include <QObject>

#include <array>
#include <cstdint>

/// The decrypting side of AES (FIPS 197) in four modes of NIST SP 800-38A, and the removal of three kinds of padding.
/// An object is used by one thread at a time.
class QAESEncryption : public QObject
{
    Q_OBJECT

public:
    /// Size of the key: 16, 24 or 32 bytes. Any other code counts as `Aes128`.
    enum Level : int { Aes128 = 0, Aes192 = 1, Aes256 = 2 };

    /// Block cipher mode; `Cfb` has segments of 128 bits. Any other code makes `decode` return nothing.
    enum Mode : int { Ecb = 0, Cbc = 1, Cfb = 2, Ofb = 3 };

    /// Form of the padding: zero bytes, PKCS #7, or ISO/IEC 7816-4. With any other code a text stays whole.
    enum Padding : int { Zero = 0, Pkcs7 = 1, Iso = 2 };

    QAESEncryption(Level keyLevel, Mode blockMode, Padding paddingForm);

    /// Decrypts `rawText`.
    /// @param key exactly as many bytes as the level asks for; this is not tested
    /// @param iv 16 bytes; not looked at in `Ecb`
    /// @return the plain text with its padding, as long as `rawText`, without its short last block in `Ecb` and `Cbc`;
    ///         empty when the mode needs an `iv` and that has another length
    QByteArray decode(const QByteArray& rawText, const QByteArray& key, const QByteArray& iv);

    /// @return the text without its padding; a text whose end does not have the form of the padding comes back whole
    QByteArray removePadding(QByteArray rawText) const;

private:
    QByteArray expandKey(const QByteArray& key) const;
    template <typename Rounds>
    QByteArray transform(const QByteArray& blocks, const Rounds& rounds);
    QByteArray cipher(const QByteArray& expandedKey, const QByteArray& blocks);
    QByteArray invCipher(const QByteArray& expandedKey, const QByteArray& blocks);
    static QByteArray xorBytes(const QByteArray& a, const QByteArray& b);

    int nb = 4;
    int blockLength = 16;
    int level;
    int mode;
    int nk;
    int nr;
    int padding;
    /// The blocks that a block transform works on, in place; null outside of it.
    QByteArray* state = nullptr;
    static const std::array<std::uint8_t, 256> sbox;
    static const std::array<std::uint8_t, 256> rsbox;
    static const std::array<std::uint8_t, 14> rcon;
};
