#include "firmware/QAESEncryption.h"

#include "tests/firmware/Samples.h"

class QAESEncryptionTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    /// Those of FIPS 197, C.1 to C.3.
    void decryptsPublishedVectors()
    {
        const QByteArray counting = "000102030405060708090a0b0c0d0e0f101112131415161718191a1b1c1d1e1f";
        const QByteArray example = "00112233445566778899aabbccddeeff";
        const char* const ciphers[] = {
            "69c4e0d86a7b0430d8cdb78070b4c55a", "dda97ca4864cdfe06eaf70a0ec0d7191", "8ea2b7ca516745bfeafc49904b496089"};
        for (int level = 0; level < 3; ++level) {
            const QByteArray key = QByteArray::fromHex(counting).first(16 + 8 * level);
            QAESEncryption aes(QAESEncryption::Level(level), QAESEncryption::Ecb, QAESEncryption::Zero);
            QCOMPARE(aes.decode(QByteArray::fromHex(ciphers[level]), key, {}).toHex(), example);
        }
    }

    void decryptsWhatLibcryptoEncrypts()
    {
        const char* const modes[] = {"ECB", "CBC", "CFB", "OFB"};
        QRandomGenerator random(1);
        for (int round = 0; round < 3000; ++round) {
            const int level = round % 3;
            const int mode = round / 3 % 4;
            const bool wholeBlocks = mode == QAESEncryption::Ecb || mode == QAESEncryption::Cbc;
            const QByteArray key = randomBytes(random, 16 + 8 * level);
            const QByteArray iv = randomBytes(random, 16);
            const QByteArray plain = randomBytes(random, wholeBlocks ? 16 * random.bounded(20) : random.bounded(320));
            const QString name = QString("AES-%1-%2").arg(128 + 64 * level).arg(modes[mode]);
            QByteArray cipher = encrypted(qPrintable(name), key, iv, plain);
            cipher.append(wholeBlocks ? random.bounded(16) : 0, 's'); // a short last block, to be left out
            QAESEncryption aes(QAESEncryption::Level(level), QAESEncryption::Mode(mode), QAESEncryption::Zero);
            QCOMPARE(aes.decode(cipher, key, iv), plain);
            QVERIFY(mode == QAESEncryption::Ecb || aes.decode(cipher, key, iv.chopped(1)).isEmpty());
        }
    }

    void removesPadding()
    {
        const auto lengths = [](QAESEncryption::Padding padding, const QByteArrayList& texts) {
            const QAESEncryption aes(QAESEncryption::Aes128, QAESEncryption::Ecb, padding);
            QList<qsizetype> result;
            for (const QByteArray& hex : texts) {
                result << aes.removePadding(QByteArray::fromHex(hex)).size();
            }
            return result;
        };
        const QByteArray count90 = QByteArray(200, '4') + "90";
        const QByteArray wholeBlock = "80" + QByteArray(30, '0');
        QCOMPARE(lengths(QAESEncryption::Iso, {"410A80", "41" + wholeBlock, "80800000", "410A0000", "0000"}),
            (QList<qsizetype>{2, 1, 1, 4, 2}));
        QCOMPARE(lengths(QAESEncryption::Pkcs7, {"410000FF03", "4103", count90, ""}), (QList<qsizetype>{2, 2, 101, 0}));
        QCOMPARE(lengths(QAESEncryption::Zero, {"41004100", "0000"}), (QList<qsizetype>{3, 0}));
    }
};

QTEST_GUILESS_MAIN(QAESEncryptionTest)
#include "QAESEncryptionTest.moc"
