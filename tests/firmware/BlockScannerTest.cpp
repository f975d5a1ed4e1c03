#include "firmware/BlockScanner.h"

#include "firmware/BurnLimits.h"
#include "firmware/MemoryImage.h"
#include "tests/firmware/Samples.h"

class BlockScannerTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    /// In `content`, "100:6d" places six bytes of data at 0x100, "100:6f" six of 0xFF.
    void cutsBlocks_data()
    {
        QTest::addColumn<QString>("content");
        QTest::addColumn<QString>("blocks");
        row("gap of four at an even address", "100:6d 10A:6d", "100+6 10A+6");
        row("gap of four at an odd address", "100:5d 109:7d", "100+6 106+10");
        row("gap across lines", "100:14d 112:14d", "100+14 110+16");
        row("limit regardless of content", "0:1100d", "0+512 200+512 400+76");
        row("unused bytes behind the last burn address", "FDFC:5d FE05:507d", "FDFC+6 FE02+510");
        row("across the last burn address", "FDFC:5d FE05:515d", "FDFC+6 FE02+510 10000+8");
        row("top byte and low data", "0:4d FFFFFFFF:1d", "0+4 FFFFFFFE+2");
    }

    void cutsBlocks()
    {
        QFETCH(QString, content);
        MemoryImage image;
        for (const QString& run : content.split(' ')) {
            const std::uint32_t address = run.section(':', 0, 0).toUInt(nullptr, 16);
            const std::vector<std::uint8_t> bytes(
                run.section(':', 1).chopped(1).toUInt(), run.back() == 'd' ? 1 : 0xFF);
            image.insert(address, bytes.data(), bytes.size());
        }
        BlockScanner scanner(image);
        for (int pass = 0; pass < 2; ++pass, scanner.reset(0)) {
            QStringList blocks;
            while (nextBurnBlock(scanner)) {
                blocks << QString("%1+%2").arg(scanner.address, 0, 16).toUpper().arg(scanner.data.size());
            }
            QTEST(blocks.join(' '), "blocks");
            QVERIFY(!nextBurnBlock(scanner) && scanner.address == 0 && scanner.data.isEmpty());
        }
    }

    void tellsWhereDataLies()
    {
        MemoryImage image;
        QVERIFY(image.addressRange() == (AddressRange{0, 0}) && !image.firstDataAbove(0));
        for (const std::uint32_t address : {0x10EU, 0xFFFFFFFCU}) {
            image.insert(address, reinterpret_cast<const std::uint8_t*>("\xFF\xFF\x01\xFF"), 4);
        }
        QVERIFY(image.addressRange() == (AddressRange{0x100, 0xFFFFFFFF}));
        QVERIFY(image.firstDataAbove(0x10F) == 0x110U && image.firstDataAbove(0x110) == 0xFFFFFFFE);
        QVERIFY(!image.firstDataAbove(0xFFFFFFFE) && !image.firstDataAbove(0xFFFFFFFF));
    }

    void keepsItsPropertiesOnRandomImages()
    {
        for (quint32 seed = 0; seed < 3000; ++seed) {
            const QByteArray name = "seed " + QByteArray::number(seed);
            QRandomGenerator random(seed);
            const std::uint32_t base = QList<quint32>{0, 0x12345000, 0xFFFFFB00}[random.bounded(3)];
            const int unusedPercent = random.bounded(100);
            MemoryImage image;
            QByteArray model(0x500, '\xFF'); // what lies from `base` on
            for (int run = random.bounded(20); run > 0; --run) {
                const auto offset = random.bounded(0x500U);
                QByteArray bytes = randomBytes(random, random.bounded(run % 2 == 0 ? 8 : 700)).left(0x500 - offset);
                const auto isUnused = [&](char) { return random.bounded(100) < unusedPercent; };
                std::replace_if(bytes.begin(), bytes.end(), isUnused, '\xFF');
                const auto* const begin = reinterpret_cast<const std::uint8_t*>(bytes.data());
                image.insert(base + offset, begin, std::size_t(bytes.size()));
                model.replace(offset, bytes.size(), bytes);
            }
            BlockScanner scanner(image);
            const qsizetype maxLength = random.bounded(2) == 0 ? 512 : 4 + 2 * random.bounded(40);
            std::uint64_t end = 0;
            qsizetype used = 0;
            while (scanner.next(std::size_t(maxLength))) {
                const QByteArray& data = scanner.data;
                const qsizetype size = data.size();
                QVERIFY2(scanner.address % 2 == 0 && scanner.address >= end, name);
                QVERIFY2(size % 2 == 0 && size >= 2 && size <= maxLength, name);
                QVERIFY2(data.left(4).count('\xFF') < data.left(4).size(), name);
                QVERIFY2(!data.contains("\xFF\xFF\xFF\xFF") && (size == maxLength || !data.endsWith("\xFF\xFF")), name);
                QVERIFY2(data == model.mid(scanner.address - base, size).leftJustified(size, '\xFF'), name);
                end = std::uint64_t{scanner.address} + std::uint64_t(size);
                used += size - data.count('\xFF');
            }
            QVERIFY2(end <= 0x100000000, name);
            QVERIFY2(used == model.size() - model.count('\xFF'), name);
        }
    }
};

QTEST_GUILESS_MAIN(BlockScannerTest)
#include "BlockScannerTest.moc"
