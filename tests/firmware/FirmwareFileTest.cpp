#include "firmware/FirmwareFile.h"

#include "tests/firmware/Samples.h"

#include <QFile>
#include <QTemporaryDir>

#ifdef Q_OS_LINUX
#include <sys/stat.h>
#endif

class FirmwareFileTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    /// `fields` are device, version, target, baudrate and link.
    void takesTheHeader_data()
    {
        QTest::addColumn<QString>("header");
        QTest::addColumn<QString>("fields");
        row("all fields", "{'device': 769, 'version': '1.2', 'target': 'Демо', 'baudrate': 9600, 'link': 1}",
            "769|1.2|Демо|9600|1");
        row("no object", "768", "0|||57600|0");
        row("device of more than 16 bits", "{'device': 66304}", "768|||57600|0");
        row("other types", "{'device': '768', 'version': 1, 'baudrate': '9600', 'link': true}", "0|||57600|0");
        row("fractions", "{'device': 768.5, 'baudrate': 9600.1, 'link': 0.1}", "0|||57600|0");
        row("beyond 32 bits", "{'device': 4294968064, 'baudrate': 2147483648}", "0|||57600|0");
        row("exponents", "{'device': 7.68e2, 'baudrate': 96e2, 'link': 2.0}", "768|||9600|2");
    }

    void takesTheHeader()
    {
        QFETCH(QString, header);
        FirmwareFile file;
        QVERIFY(file.load(write(package(padded(goodText), header.replace('\'', '"').toUtf8()))));
        QString fields = QString::number(file.device) + '|' + file.version + '|' + file.target;
        fields += QString("|%1|%2").arg(file.baudrate).arg(file.link);
        QTEST(fields, "fields");
        QVERIFY(file.scanner.next(512) && file.scanner.address == 0x10 && file.scanner.data == "\1\2\3\4");
    }

    void tellsWhatIsWrongWithTheContent_data()
    {
        QTest::addColumn<QByteArray>("content");
        QTest::addColumn<QString>("error");
        const QByteArray good = package(padded(goodText));
        const auto image = [](qsizetype length) { return wrapped(QByteArray(length, 'i')); };
        const QString format = "Invalid format";
        const QString wrong = "Wrong firmware file";
        row("empty file", QByteArray(), "illegal value");
        row("cut off", good.chopped(9), "unterminated string");
        row("no UTF-8", good.chopped(2) + '\xFF', "invalid UTF8 string");
        row("deep nesting", QByteArray(5000, '['), "too deeply nested document");
        row("array", "[" + good + "]", format);
        row("no header", QByteArray(good).replace("header", "Header"), format);
        row("no image", QByteArray(good).replace("image", "Image"), format);
        row("image is no string", QByteArray(good).replace("\"image\": ", "\"image\": 1, \"x\": "), format);
        row("image of 15 bytes", image(15), format);
        row("image of 17 bytes", image(17), format);
        row("image of 16 bytes", image(16), wrong);
        row("padding only", package(padded("")), "");
        row("line breaks and junk", QByteArray(good).replace("\": \"", "\": \"=\\r\\n -_\u00e9\\u0141"), "");
        row("another key", wrapped(encrypted("AES-128-ECB", "0123456789abcdef", {}, padded(goodText))), wrong);
        row("no padding", package(goodText.repeated(16)), "");
        row("two markers", package(padded(goodText + '\x80')), wrong);
        row("blank line", package(padded(goodText + '\n')), wrong);
        row("unknown record type", package(padded(hexRecord(9, 0, ""))), "");
    }

    void tellsWhatIsWrongWithTheContent()
    {
        QFETCH(QByteArray, content);
        FirmwareFile file;
        const bool loaded = file.load(write(content));
        QTEST(file.errorText, "error");
        QCOMPARE(loaded, file.errorText.isEmpty());
    }

    void tellsWhatIsWrongWithThePath()
    {
        const auto errorOf = [](const QString& path) {
            FirmwareFile file;
            return file.load(path) ? "no error" : file.errorText;
        };
        const QString good = write(package(padded(goodText)));
        for (const QString& path : {QString(), folder.path(), folder.filePath("missing"), good + "/below"}) {
            QFile file(path);
            QVERIFY(!file.open(QIODevice::ReadOnly) && errorOf(path) == file.errorString());
        }
        QVERIFY(QFile::resize(good, 100 * 1000 * 1000));
        QCOMPARE(errorOf(good), QString("garbage at the end of the document"));
        QVERIFY(QFile::resize(good, qint64{1} << 30));
        QCOMPARE(errorOf(good), QString("File too large"));
#ifdef Q_OS_LINUX
        QCOMPARE(mkfifo(qPrintable(folder.filePath("fifo")), 0600), 0);
        QCOMPARE(errorOf(folder.filePath("fifo")), QString("Not a regular file"));
        QCOMPARE(errorOf("/dev/zero"), QString("Not a regular file"));
        QCOMPARE(errorOf("/proc/self/mem"), QString("Input/output error"));
#endif
    }

private:
    inline static const QByteArray goodText = ":0400100001020304E2\n:00000001FF\n";

    static QByteArray padded(const QByteArray& text)
    {
        return text + '\x80' + QByteArray(15 - text.size() % 16, '\0');
    }

    static QByteArray wrapped(const QByteArray& image, const QByteArray& header = "{}")
    {
        return "{\"header\": " + header + ", \"image\": \"" + image.toBase64() + "\"}";
    }

    static QByteArray package(const QByteArray& plain, const QByteArray& header = "{}")
    {
        return wrapped(encrypted("AES-128-ECB", "v9!Tq#Lz4$Ym7^Bx", {}, plain), header);
    }

    QString write(const QByteArray& content)
    {
        QFile file(folder.filePath("firmware.txt"));
        const bool written = file.open(QIODevice::WriteOnly) && file.write(content) == content.size();
        return written ? file.fileName() : "not written";
    }

    QTemporaryDir folder;
};

QTEST_GUILESS_MAIN(FirmwareFileTest)
#include "FirmwareFileTest.moc"
