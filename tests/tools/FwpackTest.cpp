#include "firmware/FirmwareFile.h"
#include "tests/support/IntelHex.h"
#include "tools/fwpack/Package.h"

#include <QProcess>
#include <QRegularExpression>
#include <QTemporaryDir>
#include <QTest>

class FwpackTest : public QObject
{
    Q_OBJECT

    /// @return the exit status or "crashed", a blank, and all that was printed.
    static QByteArray run(const QString& program, const QString& arguments, const QByteArray& input = {})
    {
        QProcess process;
        process.setProcessChannelMode(QProcess::MergedChannels);
        process.start(program, arguments.split(' '));
        process.write(input);
        process.closeWriteChannel();
        const bool ended = process.waitForFinished() && process.exitStatus() == QProcess::NormalExit;
        return (ended ? QByteArray::number(process.exitCode()) : "crashed") + ' ' + process.readAll();
    }

private Q_SLOTS:
    void commands_data()
    {
        QTest::addColumn<QString>("command");
        QTest::addColumn<QString>("input");
        QTest::addColumn<QString>("printed");
        const auto row = [](const char* name, const auto&... cells) { (QTest::newRow(name) << ... << cells); };
        const QString data = ":0400000001020304F2\n", end = ":00000001FF\n", show = "show in";
        const QString pack = "pack in out --device 0x1F2 --version 1.2 --target \"Ä --link -1 --baudrate 9600";
        row("segment, no end", pack, ":020000020100FB\n" + data, "0 .*no end-of-file");
        row("linear, no line end", pack, ":020000020100FB\n:020000040000FA\n" + data + end.chopped(1), "0 out:");
        row("out of reach", pack, ":020000040001F9\n" + data + end, "1 .*data at 0x10000 lies");
        row("late", pack, end + ":0400000500000000F7\n" + data, "0 fwpack: in.*:0002 stands.*:0002 uns.* 0x05\n");
        row("CRLF", pack, QString(data + end + "\n \n").replace("\n", "\r\n"), "0 .*: 2\n.*4 bytes in 1 block\n$");
        row("CR alone", pack, QString(data + end).replace('\n', '\r'), "1 .*line:0001 holds 5 bytes more");
        row("checksum", pack, data + ":00000001FE", "1 .*line:0002 invalid checksum");
        row("base with offset", pack, ":020001040001F8\n" + data, "1 .*line:0001 extended address");
        row("across the top", pack, ":02000004FFFFFC\n:10FFF800FFFFFFFFFFFFFFFF4142434445464748DD\n" + data + end,
            "1 .*line:0002 runs beyond address 0xFFFFFFFF");
        row("many warnings", pack, QString(":00000005FB\n").repeated(1000) + data + end,
            "0 ([^\n]*\n){20}.*980 further");
        row("too large", pack, QString(":00000003FD\n").repeated(1 << 20) + data + end, "1 .*out: .*too large");
        row("no data", pack, ":02000000FFFF00\n" + end, "1 .*holds no data");
        row("device", "pack in out --device 0x10000", data, "2 .*0 to 65535, not \"0x10000\"\n.*Usage:");

        QString sparse = fwpack::makePackage({}, ":02010000ABCD85\n:0202FE00ABCD86\n");
        sparse.replace("baudrate", "speed").replace("0,", "66304,");
        row("sparse", show, sparse, "0 .*0x0300 .given as 66304.*57600 .not given.*0101, 2 bytes in 1 b.*: +0x02FE");
        const QList<std::pair<unsigned, QByteArray>> top{{0xFDFC, "start"}, {0xFE05, QByteArray(507, 'd')}};
        row("top", show, QString(fwpack::makePackage({}, hexText(top))), "0 .*516 bytes in 2 blocks: 6, 510\n");
        QByteArray cut = fwpack::makePackage({}, data.repeated(4).toUtf8());
        const QByteArray image = cut.split('"').rbegin()[1];
        cut.replace(image, QByteArray::fromBase64(image).chopped(16).toBase64());
        row("cut at a record", show, QString(cut), "0 .*no end-of-file.*no padding marker");
        row("types", show, R"({"header": {"link": "1", "target": "\u001B"}})", "1 .*u.001b.\".*a string.*: missing");
        row("JSON", show, "{\n\"header\": x}", "1 .*JSON: .* at offset 1[0-9], in line 2");
        row("15 bytes", show, "{\"header\": 5, \"image\": \"*AAAAAAAAAAAAAAAAAAAA\"}", "1 .*15 .*1 skip.* 0\n");
        row("key", show, "{\"header\": 5, \"image\": \"AAAAAAAAAAAAAAAAAAAAAA\"}", "1 .*1 of 1: another.*no marker");
        row("HEX", show, QString(fwpack::makePackage({}, ":0001")), "1 .*Wrong firmware file\n.*:0001 too short");
    }

    void commands()
    {
        QFETCH(QString, command);
        QFETCH(QString, input);
        QFETCH(QString, printed);
        const QTemporaryDir folder;
        QVERIFY(QDir::setCurrent(folder.path()));
        QFile in("in"), out("out"), result("out");
        QVERIFY(in.open(QFile::WriteOnly) && in.write(input.toUtf8()) == input.size() && in.flush());
        QVERIFY(out.open(QFile::WriteOnly) && out.write("old") == 3 && out.flush());
        const QByteArray text = run(FWPACK_PROGRAM, command);
        QVERIFY2(QString(text).contains(QRegularExpression("(?s)^(?!.*(\x1B|ABCD))" + printed)), text);
        const QByteArray content = result.open(QFile::ReadOnly) ? result.readAll() : "gone";
        QCOMPARE(content == "old", !command.startsWith("pack") || !text.startsWith("0 "));
        if (content != "old") {
            FirmwareFile file;
            QVERIFY(file.load("out") && file.version == "1.2" && file.target == "\"Ä");
            QVERIFY(file.device == 0x1F2 && file.baudrate == 9600 && file.link == -1 && file.scanner.next(512));
            QVERIFY(
                file.scanner.data == "\1\2\3\4" && file.scanner.address == (printed.contains("no end") ? 0x1000 : 0));
            const QByteArray hex = input.remove('\r').trimmed().toUtf8() + "\n\x80";
            const QString decrypt = "enc -d -aes-128-ecb -nopad -a -A -K 7639215471234c7a3424596d375e4278";
            QCOMPARE(run("openssl", decrypt, content.split('"').rbegin()[1]),
                "0 " + hex.leftJustified((hex.size() + 15) / 16 * 16, '\0'));
        }
    }
};

QTEST_GUILESS_MAIN(FwpackTest)
#include "FwpackTest.moc"
