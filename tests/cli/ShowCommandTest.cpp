#include "tests/support/IntelHex.h"
#include "tests/support/Program.h"
#include "tools/fwpack/Package.h"

#include <QJsonDocument>
#include <QTemporaryDir>
#include <QTest>

#include <utility>

namespace
{

const QByteArray data = ":04000000ABCD12343E\n";
const QByteArray end = ":00000001FF\n";

using Runs = QList<std::pair<unsigned, QByteArray>>;

/// A firmware file without the last block of its cipher text.
QByteArray cutFile(const QByteArray& text)
{
    QByteArray file = fwpack::makePackage({}, text);
    const QByteArray image = file.split('"').rbegin()[1];
    return file.replace(image, QByteArray::fromBase64(image).chopped(16).toBase64());
}

QByteArray sparseFile()
{
    const Runs runs = {{0x100, "\xAB\xCD"}, {0x300, QByteArray("\xAB\xCD").repeated(515)}};
    return fwpack::makePackage({2, "", "", 57600, 1}, hexText(runs))
        .replace("baudrate", "speed")
        .replace(": 2,", ": 66304,");
}

} // namespace

class ShowCommandTest : public QObject
{
    Q_OBJECT

    const QTemporaryDir folder;
    const QString file = folder.filePath("file");

private Q_SLOTS:
    void shows_data()
    {
        QTest::addColumn<QByteArray>("content");
        QTest::addColumn<int>("exitStatus");
        QTest::addColumn<QStringList>("output"); // lines that stand on standard output
        QTest::addColumn<QStringList>("errors"); // the lines on standard error, behind the name of the file
        const auto row = [](const char* name, const QByteArray& content, int exitStatus, const QStringList& output,
                             const QStringList& errors) {
            QTest::newRow(name) << content << exitStatus << output << errors;
        };
        const auto packed = [](const QByteArray& hex, int baudrate = 57600) {
            return fwpack::makePackage({0, "", "", baudrate}, hex);
        };
        row("two ranges", sparseFile(), 0,
            {"device:   0x0300 (given as 66304, of which the low 16 bits count)", "version:  \"\"",
                "baudrate: 57600 (not given)", "link:     1 (the line echoes what is sent)",
                "range:    0x0100 to 0x0101, 2 bytes in 1 block: 2",
                "range:    0x0300 to 0x0705, 1030 bytes in 3 blocks: 2 x 512, 6",
                "total:    1032 bytes in 4 blocks, 2 ranges",
                "time:     about 0.4 s on the line, to write and to read back"},
            {});
        row("out of reach", packed(hexText(Runs{{0xFFFE, "dddd"}})), 1, {},
            {"a burn refuses the file: data at 0x10000 lies above 0xFFFF"});
        row("no speed", packed(data + end, 0), 1, {"baudrate: 0"},
            {"a burn refuses the file: no line has a speed of 0"});
        row("no data", packed(end), 0, {"total:    0 bytes in 0 blocks, 0 ranges"},
            {"warning: holds no data: a burn would erase the device and write nothing"});
        row("cut at the end of a record", cutFile(data.repeated(4)), 0, {},
            {"warning: Intel HEX: no end-of-file record: the file may be cut short",
                "warning: padding: no marker 0x80 at the end: cut short, damaged, or of another key"});
        row("another key", R"({"header": {}, "image": "AAAAAAAAAAAAAAAAAAAAAA=="})", 1, {},
            {"does not load: Wrong firmware file", "Intel HEX: line:0001 is not intel-hex",
                "decryption: byte 2 of the text is none of Intel HEX, in cipher block 1 of 1: another key, or damaged",
                "padding: no marker 0x80 at the end: cut short, damaged, or of another key"});
        row("15 bytes", R"({"header": 5, "image": "*AAAAAAAAAAAAAAAAAAAA"})", 1, {"device:   0x0000 (not given)"},
            {"does not load: Invalid format", "header: a number, not an object: nothing in it counts",
                "cipher text: 15 bytes, no whole number of blocks of 16: cut short or damaged",
                "Base64: 1 skipped that are none of its characters, the first at position 0"});
        row("other types", R"({"header": {"device": 0.5, "link": "1", "target": "\u001B"}})", 1,
            {"device:   0x0000 (given as 0.5, no whole number of 32 bits)", "target:   \"\\u{001b}\"",
                "link:     0 (given as a string, which does not count)"},
            {"does not load: Invalid format", "image: missing"});
        row("bad JSON", "{\n\"header\": x}", 1, {},
            {"does not load: illegal number", "JSON: illegal number at offset 12, in line 2"});
    }

    void shows()
    {
        QFETCH(QByteArray, content);
        QFETCH(QStringList, output);
        QFETCH(QStringList, errors);
        QVERIFY(write(file, content));
        const Answer answer = run(TAVIMORA_CLI, {"show", file});
        const QString shown = answer.out;
        for (const QString& line : output) {
            QVERIFY2(('\n' + shown).contains('\n' + line + '\n'), qPrintable(shown));
        }
        QVERIFY2(!shown.contains("ABCD", Qt::CaseInsensitive) && !shown.contains('\x1B'), "shows the image");
        QCOMPARE(QString(answer.error).remove("tavimora-cli show: " + file + ": "),
            errors.join('\n') + (errors.isEmpty() ? "" : "\n"));
        QTEST(answer.status, "exitStatus");
    }

    void writesJson()
    {
        QVERIFY(write(file, sparseFile()));
        const QByteArray expected = R"({"file": "%1", "device": 768, "version": "", "target": "", "baudrate": 57600,
            "link": 1, "notes": {"device": "given as 66304, of which the low 16 bits count", "baudrate": "not given"},
            "ranges": [{"first": 256, "last": 257, "blocks": [2]}, {"first": 768, "last": 1797, "blocks": [512,512,6]}],
            "bytes": 1032, "blocks": 4, "seconds": 0.35833333333333334, "warnings": [], "errors": []})";
        const auto parsed = [](const QByteArray& text) { return QJsonDocument::fromJson(text).toJson(); };
        QCOMPARE(parsed(run(TAVIMORA_CLI, {"show", "--json", file}).out),
            parsed(QByteArray(expected).replace("%1", file.toUtf8())));
    }
};

QTEST_GUILESS_MAIN(ShowCommandTest)
#include "ShowCommandTest.moc"
