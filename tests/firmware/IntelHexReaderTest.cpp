#include "firmware/BlockScanner.h"
#include "firmware/MemoryImage.h"
#include "tests/firmware/Samples.h"

#include <QBuffer>

class IntelHexReaderTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void takesLines_data()
    {
        QTest::addColumn<QByteArray>("text");
        QTest::addColumn<QString>("message");
        QTest::addColumn<QString>("blocks");
        const auto data = [](int offset, const char* hex) { return hexRecord(0, offset, QByteArray::fromHex(hex)); };
        const auto linear = [](const char* hex) { return hexRecord(4, 0, QByteArray::fromHex(hex)); };
        const auto segment = [](const char* hex) { return hexRecord(2, 0, QByteArray::fromHex(hex)); };
        const QByteArray end = ":00000001FF\n";
        row("data behind the end record", end + data(0x10, "0102"), "", "10:0102");
        row("all line ends", QByteArray(":0100000001FE\n:0100010002FC\r\n:0100020003FA"), "", "0:010203FF");
        row("other characters between digits", QByteArray(": 02-0010 00\tabCDx7 6\v"), "", "10:ABCD");
        row("odd number of digits", QByteArray(":0000001FF\n:100000001FE"), "", "0:01FF");
        row("blank line at the end", end + "\n", "line:0002 is not intel-hex", "");
        row("count beyond the line", hexRecord(0, 0, "12", 3), "line:0001 too short", "");
        row("lines before a bad one stay", data(0, "01") + ":0100010001FF", "line:0002 invalid checksum", "0:01FF");
        row("unknown type", hexRecord(0xAB, 0, "1") + data(0, "01"), "line:0001 unsupported type: 0xAB", "0:01FF");
        row("count below the line", hexRecord(0, 0, "123", 1), "", "0:31FF");
        row("later bytes win", data(0, "0102030405") + data(2, "AABB"), "", "0:0102AABB05FF");
        row("segment after linear", linear("1234") + segment("0001") + data(0, "01"), "", "10:01FF");
        row("linear after segment", segment("0001") + linear("1234") + data(0, "01"), "", "12340000:01FF");
        row("malformed address", hexRecord(4, 1, "12") + hexRecord(2, 0, "123") + data(0, "01"), "", "0:01FF");
        row("no wrap in the segment", segment("0001") + data(0xFFFF, "FF01"), "", "10010:01FF");
        row("across the top", linear("FFFF") + data(0xFFFE, "AABB0102"), "", "0:0102 FFFFFFFE:AABB");
    }

    void takesLines()
    {
        QFETCH(QByteArray, text);
        MemoryImage image;
        image.insert(0xABCDEF, reinterpret_cast<const std::uint8_t*>("left over"), 9);
        QBuffer buffer(&text);
        buffer.open(QIODevice::ReadOnly);
        static QStringList logged;
        logged.clear();
        qInstallMessageHandler([](QtMsgType type, const QMessageLogContext& context, const QString& message) {
            logged << (type == QtCriticalMsg && context.file == nullptr ? message : "not expected here: " + message);
        });
        const bool accepted = image.readIntelHex(buffer);
        qInstallMessageHandler(nullptr);
        QTEST(logged.join('\n'), "message");
        QCOMPARE(accepted, logged.isEmpty() || logged[0].contains("unsupported"));
        QStringList blocks;
        for (BlockScanner scanner(image); scanner.next(512);) {
            blocks << QString("%1:%2").arg(scanner.address, 0, 16).arg(QString(scanner.data.toHex()));
        }
        QTEST(blocks.join(' ').toUpper(), "blocks");
    }
};

QTEST_GUILESS_MAIN(IntelHexReaderTest)
#include "IntelHexReaderTest.moc"
