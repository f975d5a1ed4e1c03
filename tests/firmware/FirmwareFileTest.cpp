#include "firmware/FirmwareFile.h"

#include "firmware/Base64.h"
#include "tests/firmware/Samples.h"

#include <QFile>
#include <QJsonDocument>
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
        row("no fields", "{}", "0|||57600|0");
        row("no object", "768", "0|||57600|0");
        row("device of more than 16 bits", "{'device': 66304}", "768|||57600|0");
        row("negative device", "{'device': -1}", "65535|||57600|0");
        row("other types", "{'device': '768', 'version': 1, 'baudrate': '9600', 'link': true}", "0|||57600|0");
        row("fractions", "{'device': 768.5, 'baudrate': 9600.1, 'link': 0.1}", "0|||57600|0");
        row("beyond 32 bits", "{'device': 4294968064, 'baudrate': 2147483648}", "0|||57600|0");
        row("exponents", "{'device': 7.68e2, 'baudrate': 96e2, 'link': 2.0}", "768|||9600|2");
    }

    void takesTheHeader()
    {
        QFETCH(QString, header);
        FirmwareFile file;
        QVERIFY(file.load(write(package(goodImage(), header.replace('\'', '"').toUtf8()))) && file.errorText.isEmpty());
        QString fields = QString::number(file.device) + '|' + file.version + '|' + file.target;
        fields += QString("|%1|%2").arg(file.baudrate).arg(file.link);
        QTEST(fields, "fields");
        QVERIFY(file.scanner.next(512) && file.scanner.address == 0x10 && file.scanner.data == "\1\2\3\4");
    }

    void tellsWhatIsWrongWithTheContent_data()
    {
        QTest::addColumn<QByteArray>("content");
        QTest::addColumn<QString>("error");
        const auto text = [](const QByteArray& plain) { return package(image(plain)); };
        const QByteArray good = package(goodImage());
        const char* const format = "Invalid format";
        const char* const wrong = "Wrong firmware file";
        row("empty file", QByteArray(), "JSON");
        row("cut off", good.chopped(1), "JSON");
        row("noise", goodImage(), "JSON");
        row("no UTF-8", good.chopped(1) + '\xFF', "JSON");
        row("deep nesting", QByteArray(5000, '['), "JSON");
        row("array", "[" + good + "]", format);
        row("no header", QByteArray(good).replace("header", "Header"), format);
        row("no image", QByteArray("{\"header\": 0}"), format);
        row("image is no string", QByteArray(good).replace("\"image\": ", "\"image\": 1, \"x\": "), format);
        row("image of 0 bytes", package(""), format);
        row("image of 15 bytes", package(goodImage().first(15)), format);
        row("image of 17 bytes", package(goodImage().first(17)), format);
        row("image of 16 bytes", text(padded("")), "");
        row("line breaks and junk", QByteArray(good).replace("\": \"", "\": \"=\\r\\n -_\u00e9\\u0141"), "");
        row("another key", package(encrypted("AES-128-ECB", "0123456789abcdef", {}, padded(goodText))), wrong);
        row("no padding", text(goodText.repeated(16)), "");
        row("zero padding", text(padded(goodText).replace('\x80', '\0')), wrong);
        row("two markers", text(padded(goodText + '\x80')), wrong);
        row("blank line", text(padded(goodText + '\n')), wrong);
        row("unknown record type", text(padded(hexRecord(9, 0, ""))), "");
    }

    void tellsWhatIsWrongWithTheContent()
    {
        QFETCH(QByteArray, content);
        QFETCH(QString, error);
        if (error == "JSON") {
            QJsonParseError parseError;
            QVERIFY(QJsonDocument::fromJson(content, &parseError).isNull());
            error = parseError.errorString();
        }
        FirmwareFile file;
        QCOMPARE(file.load(write(content)), error.isEmpty());
        QCOMPARE(file.errorText, error);
    }

    void tellsWhatIsWrongWithThePath()
    {
        const auto errorOf = [](const QString& path) {
            FirmwareFile file;
            return file.load(path) ? "no error" : file.errorText;
        };
        const QString good = write(package(goodImage()));
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

    void decodesBase64AsQtDoes()
    {
        QRandomGenerator random(1);
        for (int length = 0; length < 1000; ++length) {
            QString text = randomBytes(random, length).toBase64().first(length);
            for (const QChar junk : QString("=\r -_.\u00c1\u0141\u4141")) {
                text.insert(random.bounded(int(text.size()) + 1), junk);
            }
            QCOMPARE(decodeBase64(text), QByteArray::fromBase64(text.toUtf8()));
        }
    }

private:
    inline static const QByteArray goodText = ":0400100001020304E2\n:00000001FF\n";

    static QByteArray padded(const QByteArray& text)
    {
        return text + '\x80' + QByteArray(15 - text.size() % 16, '\0');
    }

    static QByteArray image(const QByteArray& plain)
    {
        return encrypted("AES-128-ECB", "v9!Tq#Lz4$Ym7^Bx", {}, plain);
    }

    static QByteArray goodImage()
    {
        return image(padded(goodText));
    }

    static QByteArray package(const QByteArray& content, const QByteArray& header = "{}")
    {
        return "{\"header\": " + header + ", \"image\": \"" + content.toBase64() + "\"}";
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
