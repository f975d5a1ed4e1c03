#include "firmware/FirmwareFile.h"

#include "tests/firmware/Samples.h"
#include "tests/support/Program.h"

#include <QTemporaryDir>

#ifdef Q_OS_LINUX
#include <sys/stat.h>
#endif

class FirmwareFileTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    /// `outcome` is what was wrong, or device, version, target, baudrate, link and the first block.
    void readsTheContent_data()
    {
        QTest::addColumn<QByteArray>("content");
        QTest::addColumn<QString>("outcome");
        const QByteArray good = package(padded(goodText));
        const auto header = [](QByteArray text) { return package(padded(goodText), text.replace('\'', '"')); };
        const auto image = [](qsizetype length) { return wrapped(QByteArray(length, 'i')); };
        const QString format = "Invalid format";
        const QString plain = "0|||57600|0|16:01020304";
        const QString wrong = "Wrong firmware file";
        row("all fields", header("{'device': 769, 'version': '1.2', 'target': 'Демо', 'baudrate': 9600, 'link': 1}"),
            "769|1.2|Демо|9600|1|16:01020304");
        row("no object", header("768"), plain);
        row("device of more than 16 bits", header("{'device': 66304}"), "768|||57600|0|16:01020304");
        row("other types", header("{'device': '768', 'version': 1, 'baudrate': '9600', 'link': true}"), plain);
        row("no 32 bits", header("{'device': 4294968064, 'baudrate': 9600.1, 'link': 0.1}"), plain);
        row("cut off", good.chopped(9), "unterminated string");
        row("no header", QByteArray(good).replace("header", "Header"), format);
        row("image is no string", QByteArray(good).replace("\"image\": ", "\"image\": 1, \"x\": "), format);
        row("image of 0 bytes", image(0), format);
        row("image of 17 bytes", image(17), format);
        row("padding only", package(padded("")), "0|||57600|0|0:");
        row("line breaks and junk", QByteArray(good).replace("\": \"", "\": \"=\\r\\n -_\u00e9\\u0141"), plain);
        row("another key", wrapped(encrypted("AES-128-ECB", "0123456789abcdef", {}, padded(goodText))), wrong);
        row("no padding", package(goodText.repeated(16)), plain);
        row("two markers", package(padded(goodText + '\x80')), wrong);
    }

    void readsTheContent()
    {
        QFETCH(QByteArray, content);
        FirmwareFile file;
        const bool loaded = file.load(write(content));
        file.scanner.next(512);
        const QString words = file.version + '|' + file.target;
        const QString fields = QString("%1|%2|%3|%4|").arg(file.device).arg(words).arg(file.baudrate).arg(file.link);
        const QString block = QString("%1:").arg(file.scanner.address) + file.scanner.data.toHex();
        QTEST(loaded ? fields + block : file.errorText, "outcome");
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
        QVERIFY(QFile::resize(good, 16 << 20));
        QCOMPARE(errorOf(good), QString("garbage at the end of the document"));
        QVERIFY(QFile::resize(good, (16 << 20) + 1));
        QCOMPARE(errorOf(good), QString("File too large"));
#ifdef Q_OS_LINUX
        QCOMPARE(mkfifo(qPrintable(folder.filePath("fifo")), 0600), 0);
        QCOMPARE(errorOf(folder.filePath("fifo")), QString("Not a regular file"));
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

    QString write(const QByteArray& content) const
    {
        const QString path = folder.filePath("firmware.txt");
        return ::write(path, content) ? path : "not written";
    }

    QTemporaryDir folder;
};

QTEST_GUILESS_MAIN(FirmwareFileTest)
#include "FirmwareFileTest.moc"
