#include "firmware/QAESEncryption.h"

#include "tests/firmware/Samples.h"

class QAESEncryptionTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void decryptsPublishedVectors_data()
    {
        QTest::addColumn<int>("mode");
        QTest::addColumn<QString>("key");
        QTest::addColumn<QString>("plain");
        QTest::addColumn<QString>("cipher");
        const QString k128 = "2b7e151628aed2a6abf7158809cf4f3c";
        const QString k256 = "603deb1015ca71be2b73aef0857d77811f352c073b6108d72d9810a30914dff4";
        const QString counting = "000102030405060708090a0b0c0d0e0f101112131415161718191a1b1c1d1e1f";
        const QString example = "00112233445566778899aabbccddeeff";
        row("FIPS 197, B", 0, k128, "3243f6a8885a308d313198a2e0370734", "3925841d02dc09fbdc118597196a0b32");
        row("FIPS 197, C.1", 0, counting.first(32), example, "69c4e0d86a7b0430d8cdb78070b4c55a");
        row("FIPS 197, C.2", 0, counting.first(48), example, "dda97ca4864cdfe06eaf70a0ec0d7191");
        row("FIPS 197, C.3", 0, counting, example, "8ea2b7ca516745bfeafc49904b496089");
        // The first two blocks of each example.
        const auto sp = [](const char* name, int mode, const QString& key, const char* cipher) {
            QTest::addRow("SP 800-38A, %s.Decrypt", name)
                << mode << key << "6bc1bee22e409f96e93d7e117393172aae2d8a571e03ac9c9eb76fac45af8e51" << cipher;
        };
        sp("F.2.2 CBC-AES128", 1, k128, "7649abac8119b246cee98e9b12e9197d5086cb9b507219ee95db113a917678b2");
        sp("F.2.6 CBC-AES256", 1, k256, "f58c4c04d6e5f1ba779eabfb5f7bfbd69cfc4e967edb808d679f777bc6702c7d");
        sp("F.3.14 CFB128-AES128", 2, k128, "3b3fd92eb72dad20333449f8e83cfb4ac8a64537a0b3a93fcde3cdad9f1ce58b");
        sp("F.3.18 CFB128-AES256", 2, k256, "dc7e84bfda79164b7ecd8486985d386039ffed143b28b1c832113c6331e5407b");
        sp("F.4.2 OFB-AES128", 3, k128, "3b3fd92eb72dad20333449f8e83cfb4a7789508d16918f03f53c52dac54ed825");
        sp("F.4.6 OFB-AES256", 3, k256, "dc7e84bfda79164b7ecd8486985d38604febdc6740d20b3ac88f6ad82a4fb08d");
    }

    void decryptsPublishedVectors()
    {
        QFETCH(int, mode);
        QFETCH(QString, key);
        QFETCH(QString, cipher);
        const auto level = QAESEncryption::Level(key.size() / 16 - 2);
        QAESEncryption aes(level, QAESEncryption::Mode(mode), QAESEncryption::Zero);
        const auto bytes = [](const QString& hex) { return QByteArray::fromHex(hex.toLatin1()); };
        const QByteArray plain = aes.decode(bytes(cipher), bytes(key), bytes("000102030405060708090a0b0c0d0e0f"));
        QTEST(QString(plain.toHex()), "plain");
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
        QCOMPARE(lengths(QAESEncryption::Padding(3), {"41800000"}), (QList<qsizetype>{4}));
    }
};

QTEST_GUILESS_MAIN(QAESEncryptionTest)
#include "QAESEncryptionTest.moc"
