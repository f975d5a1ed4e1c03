#include "firmware/BlockScanner.h"

#include "firmware/MemoryImage.h"

#include <QRandomGenerator>
#include <QTest>

namespace
{

using Bytes = std::map<std::uint64_t, std::uint8_t>;

/// Fills the image from words such as "@100" (go to that address), "6d" (six bytes of data) and "3f" (three of 0xFF).
void fill(MemoryImage& image, const QString& description)
{
    std::uint32_t address = 0;
    for (const QString& word : description.split(' ', Qt::SkipEmptyParts)) {
        if (word.startsWith('@')) {
            address = word.sliced(1).toUInt(nullptr, 16);
            continue;
        }
        const QByteArray bytes(word.chopped(1).toInt(), word.endsWith('d') ? '\x5A' : '\xFF');
        image.insert(address, reinterpret_cast<const std::uint8_t*>(bytes.data()), std::size_t(bytes.size()));
        address += std::uint32_t(bytes.size());
    }
}

/// Places random runs, many of them touching or overlapping, in the image and in a plain map from address to byte.
void fillRandomly(MemoryImage& image, Bytes& model, QRandomGenerator& random)
{
    const std::uint32_t bases[] = {0, 0x1000, 0x12345678, 0xFFFFF000, 0xFFFFFB00};
    const std::uint32_t base = bases[random.bounded(5)];
    const int unusedPercent = random.bounded(100);
    for (int run = random.bounded(20); run >= 0; --run) {
        const std::uint32_t address = base + random.bounded(0x500U);
        std::vector<std::uint8_t> bytes(random.bounded(random.bounded(2) == 0 ? 8U : 700U));
        for (std::size_t i = 0; i < bytes.size(); ++i) {
            bytes[i] = random.bounded(100) < unusedPercent ? 0xFF : std::uint8_t(random.bounded(256));
            if (address + i <= 0xFFFFFFFF) {
                model[address + i] = bytes[i];
            }
        }
        image.insert(address, bytes.data(), bytes.size());
    }
}

bool isUnused(char byte)
{
    return byte == '\xFF';
}

} // namespace

class BlockScannerTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void cutsBlocks_data();
    void cutsBlocks();
    void keepsItsPropertiesOnRandomImages();
};

void BlockScannerTest::cutsBlocks_data()
{
    QTest::addColumn<QString>("content");
    QTest::addColumn<QString>("blocks");
    const auto row = [](const char* name, const char* content, const char* blocks) {
        QTest::newRow(name) << content << blocks;
    };
    row("gap of three stays", "@100 6d 3f 7d", "100+16");
    row("gap of four at an even address", "@100 6d 4f 6d", "100+6 10A+6");
    row("gap of four at an odd address", "@100 5d 4f 7d", "100+6 106+10");
    row("gap of five at an even address", "@100 6d 5f 5d", "100+6 10A+6");
    row("gap of five at an odd address", "@100 5d 5f 6d", "100+6 10A+6");
    row("gap across lines", "@100 14d 4f 14d", "100+14 110+16");
    row("three leading unused bytes", "@113 3d", "110+6");
    row("four leading unused bytes", "@114 3d", "114+4");
    row("odd start", "@115 3d", "114+4");
    row("one byte at an even address", "@100 1d", "100+2");
    row("one byte at an odd address", "@101 1d", "100+2");
    row("odd end of the image", "@120 11d", "120+12");
    row("even end of the image", "@120 12d", "120+12");
    row("line of unused bytes", "@100 16f @200 2d", "200+2");
    row("gap behind a full block", "@0 510d 2f 6d", "0+512 200+6");
    row("limit regardless of content", "@0 1100d", "0+512 200+512 400+76");
    row("empty image", "", "");
    row("unused bytes only", "@100 40f", "");
    row("top byte, and low data that does not follow it", "@0 4d @FFFFFFFF 1d", "0+4 FFFFFFFE+2");
    row("full block across the top", "@FFFFFE04 508d", "FFFFFE04+508");
}

void BlockScannerTest::cutsBlocks()
{
    QFETCH(QString, content);
    QFETCH(QString, blocks);
    MemoryImage image;
    BlockScanner scanner(image);
    fill(image, content);
    for (int pass = 0; pass < 2; ++pass) {
        QStringList found;
        while (scanner.next(512)) {
            found << QString("%1+%2").arg(scanner.address, 0, 16).toUpper().arg(scanner.data.size());
        }
        QCOMPARE(found.join(' '), blocks);
        QVERIFY(!scanner.next(512) && scanner.address == 0 && scanner.data.isEmpty());
        scanner.reset(0);
    }
}

void BlockScannerTest::keepsItsPropertiesOnRandomImages()
{
    for (quint32 seed = 0; seed < 2000; ++seed) {
        QRandomGenerator random(seed);
        MemoryImage image;
        Bytes model;
        fillRandomly(image, model, random);
        BlockScanner scanner(image);
        const qsizetype maxLength = random.bounded(2) == 0 ? 512 : 4 + 2 * random.bounded(40);
        std::uint64_t end = 0;
        Bytes left = model;
        const auto context = [&] {
            return qPrintable(QString("seed %1, block %2").arg(seed).arg(scanner.address, 0, 16));
        };
        while (scanner.next(std::size_t(maxLength))) {
            const QByteArray& data = scanner.data;
            QVERIFY2(scanner.address % 2 == 0 && scanner.address >= end, context());
            QVERIFY2(data.size() % 2 == 0 && data.size() >= 2 && data.size() <= maxLength, context());
            QVERIFY2(!std::all_of(data.begin(), data.begin() + qMin<qsizetype>(4, data.size()), isUnused), context());
            QVERIFY2(!data.contains("\xFF\xFF\xFF\xFF"), context());
            QVERIFY2(data.size() == maxLength || !data.endsWith("\xFF\xFF"), context());
            end = std::uint64_t{scanner.address} + std::uint64_t(data.size());
            QVERIFY2(end <= std::uint64_t{1} << 32, context());
            for (qsizetype i = 0; i < data.size(); ++i) {
                const auto placed = left.extract(scanner.address + std::uint64_t(i));
                QVERIFY2(std::uint8_t(data[i]) == (placed.empty() ? 0xFF : placed.mapped()), context());
            }
        }
        QVERIFY2(
            std::all_of(left.begin(), left.end(), [](const auto& byte) { return byte.second == 0xFF; }), context());
        const auto lineOf = [](std::uint64_t address) { return std::uint32_t(address & ~std::uint64_t{15}); };
        const AddressRange range = model.empty()
                                       ? AddressRange{}
                                       : AddressRange{lineOf(model.begin()->first), lineOf(model.rbegin()->first) + 15};
        QVERIFY2(image.addressRange() == range, context());
    }
}

QTEST_GUILESS_MAIN(BlockScannerTest)
#include "BlockScannerTest.moc"
