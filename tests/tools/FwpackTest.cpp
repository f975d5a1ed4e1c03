#include "firmware/FirmwareFile.h"
#include "tests/support/Program.h"

#include <QTemporaryDir>
#include <QTest>

class FwpackTest : public QObject
{
    Q_OBJECT

    const QTemporaryDir folder;
    const QString in = folder.filePath("in"), out = folder.filePath("out");

    /// Packs `input` in the place of a file that holds "old".
    Answer pack(const QByteArray& input, const QString& device) const
    {
        return !write(in, input) || !write(out, "old")
                   ? Answer()
                   : run(FWPACK, {"pack", in, out, "--device", device, "--version", "1.2", "--target", "\"Ä", "--link",
                                     "-1", "--baudrate", "9600"});
    }

private Q_SLOTS:
    void packs_data()
    {
        QTest::addColumn<QByteArray>("input");
        // How the lines on standard error begin behind "fwpack: ". Those of a failure begin with "in: " or "out: ",
        // but not with "in: warning: ".
        QTest::addColumn<QStringList>("errors");
        QTest::addColumn<QByteArray>("packed"); // the text in the firmware file; empty for a failure
        QTest::addColumn<quint32>("address");   // where the data lies
        const auto row = [](const char* name, const QByteArray& input, const QStringList& errors,
                             const QByteArray& packed = {},
                             quint32 address = 0) { QTest::newRow(name) << input << errors << packed << address; };
        const QByteArray data = ":0400000001020304F2\n";
        const QByteArray end = ":00000001FF\n";
        const QByteArray segment0x100 = ":020000020100FB\n";
        const QByteArray startAddress = ":0400000500000000F7\n";
        const QByteArray acrossTop = ":02000004FFFFFC\n:10FFF800FFFFFFFFFFFFFFFF4142434445464748DD\n";

        row("no end record", segment0x100 + data, {"in: warning: no end-of-file record: the file may be cut short"},
            segment0x100 + data, 0x1000);
        row("no line end", data + end.chopped(1), {}, data + end);
        row("CRLF and blank lines", ":0400000001020304F2\r\n:00000001FF\r\n\r\n \r\n",
            {"in: warning: blank lines at the end left out: 2"}, data + end);
        row("data behind the end record", end + startAddress + data,
            {"in: warning: line:0002 stands behind the end-of-file record, and is read all the same",
                "in: warning: line:0002 unsupported type: 0x05"},
            end + startAddress + data);
        row("many warnings", startAddress.repeated(1000) + data + end,
            QStringList(20, "in: warning: line:") + QStringList("in: warning: 980 further warnings"),
            startAddress.repeated(1000) + data + end);
        row("CR alone", ":0400000001020304F2\r:00000001FF\r", {"in: line:0001 holds 5 bytes more"});
        row("wrong checksum", data + ":00000001FE", {"in: line:0002 invalid checksum"});
        row("base with an offset", ":020001040001F8\n" + data, {"in: line:0001 extended address"});
        row("out of reach", ":020000040001F9\n" + data + end, {"in: data at 0x10000 lies above 0xFFFF"});
        row("across the top", acrossTop + data + end, {"in: line:0002 runs beyond address 0xFFFFFFFF"});
        row("no data", ":02000000FFFF00\n" + end, {"in: holds no data"});
        row("too large", data + QByteArray(":00000003FD\n").repeated(1 << 20) + end, {"out: is too large"});
    }

    void packs()
    {
        QFETCH(QByteArray, input);
        QFETCH(QStringList, errors);
        QFETCH(QByteArray, packed);
        const Answer answer = pack(input, "0x1F2");
        const QString text = QString(answer.error).remove(folder.path() + '/');
        const QStringList lines = text.split('\n', Qt::SkipEmptyParts);
        QVERIFY2(answer.status == (packed.isEmpty() ? 1 : 0) && lines.size() == errors.size(), qPrintable(text));
        for (qsizetype i = 0; i < lines.size(); ++i) {
            QVERIFY2(lines[i].startsWith("fwpack: " + errors[i]), qPrintable(text));
        }
        const QByteArray content = contentOf(out);
        if (packed.isEmpty()) {
            QCOMPARE(content, "old");
            return;
        }
        QCOMPARE(answer.out, out.toUtf8() + ": \"\\\"Ä\" 1.2 for device 0x01F2, 4 bytes in 1 block\n");
        FirmwareFile file;
        QVERIFY(file.load(out) && file.version == "1.2" && file.target == "\"Ä");
        QVERIFY(file.device == 0x1F2 && file.baudrate == 9600 && file.link == -1 && file.scanner.next(512));
        QTEST(file.scanner.address, "address");
        QCOMPARE(file.scanner.data, "\1\2\3\4");
        packed += '\x80';
        QCOMPARE(run("openssl",
                     {"enc", "-d", "-aes-128-ecb", "-nopad", "-a", "-A", "-K", "7639215471234c7a3424596d375e4278"},
                     content.split('"').rbegin()[1])
                     .out,
            packed.leftJustified((packed.size() + 15) / 16 * 16, '\0'));
    }

    void wrongUsage()
    {
        const Answer refusal = pack("", "0x10000");
        QVERIFY2(
            refusal.error.startsWith("fwpack pack: --device wants a number from 0 to 65535, not \"0x10000\"\nusage: "),
            refusal.error);
        QCOMPARE(refusal.status, 2);
    }
};

QTEST_GUILESS_MAIN(FwpackTest)
#include "FwpackTest.moc"
