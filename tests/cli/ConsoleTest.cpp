#include "tests/support/Program.h"

#include <QStandardPaths>
#include <QTemporaryDir>
#include <QTest>

/// What the console program answers without a device.
class ConsoleTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void answers_data()
    {
        const QString usage = "usage: tavimora-cli ports [--json]\n       tavimora-cli ";
        QTest::addColumn<QString>("path");
        QTest::addColumn<QStringList>("arguments");
        QTest::addColumn<int>("exitStatus");
        // Each begins so, and is empty if this is.
        QTest::addColumn<QString>("output");
        QTest::addColumn<QString>("error");
        const auto row = [](const char* name, const char* path, const QStringList& arguments, int exitStatus,
                             const QString& output, const QString& error) {
            QTest::newRow(name) << path << arguments << exitStatus << output << error;
        };
        const char* const cli = TAVIMORA_CLI;
        row("no command", cli, {}, 2, "", "tavimora-cli: a command is missing\n" + usage);
        row("wrong command", cli, {"prots"}, 2, "", "tavimora-cli: there is no command \"prots\"\n" + usage);
        row("--help", cli, {"--help"}, 0, usage, "");
        row("--version", cli, {"--version"}, 0, "tavimora-cli 1", "");
        row("burn without a port", cli, {"burn", "a"}, 2, "", "tavimora-cli burn: --port is missing\n");
        row("option given twice", cli, {"verify", "--port", "a", "--port", "b", "c"}, 2, "",
            "tavimora-cli verify: --port is given more than once\n");
        row("label without a record", cli, {"burn", "--port", "a", "--label", "a", "b"}, 2, "",
            "tavimora-cli burn: --label is for --record, which is missing\n");
        row("adapter that is not there", cli, {"burn", "--port", "usb:ffff:ffff", "b"}, 2, "",
            "tavimora-cli burn: no port fits \"usb:ffff:ffff\"\n");
        row("burn without its record", cli, {"burn", "--port", "a", "--record", "/proc/a", "b"}, 1, "",
            "tavimora-cli burn: the record \"/proc/a\": ");
        row("record that cannot be written", cli, {"station", "--port", "a", "--record", "/proc/a", "b"}, 1, "",
            "tavimora-cli station: the record \"/proc/a\": ");
        row("control character in the log", cli, {"info", "--port", "\x1b"}, 1, "Can't open serial port '\\u{001b}'. ",
            "tavimora-cli info: Can't open serial port '\\u{001b}'. ");
        row("nobody reads the log", "sh",
            {"-c", "{ while /bin/echo; do :; done; " TAVIMORA_CLI " info --port a; } | true"}, 0, "",
            "tavimora-cli info: Can't open serial port 'a'. ");
        row("script/run --help", SCRIPT_RUN, {"--help"}, 0, "usage: script/run [--console]\n", "");
    }

    void answers()
    {
        QFETCH(QString, path);
        QFETCH(QStringList, arguments);
        QFETCH(QString, output);
        QFETCH(QString, error);
        const Answer answer = run(path, arguments);
        QVERIFY2(answer.out.startsWith(output.toUtf8()) && answer.out.isEmpty() == output.isEmpty(), answer.out);
        QVERIFY2(answer.error.startsWith(error.toUtf8()) && answer.error.isEmpty() == error.isEmpty(), answer.error);
        QTEST(answer.status, "exitStatus");
    }

    void ports()
    {
        if (QStandardPaths::findExecutable("umockdev-run").isEmpty()) {
            QSKIP("umockdev is not installed");
        }
        const QTemporaryDir folder;
        const QString machine = folder.filePath("machine");
        QVERIFY(write(machine, R"(P: /devices/usb1/1-1
E: SUBSYSTEM=usb
E: DEVTYPE=usb_device
A: idVendor=0403
A: idProduct=6001
A: manufacturer=FTDI
A: product=FT232R\tUSB
A: serial=A50285BI

P: /devices/usb1/1-1/1-1:1.0/tty/ttyUSB10
N: ttyUSB10
E: SUBSYSTEM=tty
E: DEVNAME=/dev/ttyUSB10
)"));
        qputenv("XDG_RUNTIME_DIR", folder.path().toLocal8Bit());
        qputenv("ASAN_OPTIONS", "verify_asan_link_order=0"); // umockdev-run preloads a library
        const auto onMachine = [&machine](const QStringList& arguments) {
            return run("umockdev-run", QStringList{"-d", machine, "--", TAVIMORA_CLI} + arguments);
        };
        const Answer listed = onMachine({"ports"});
        QCOMPARE(listed.out, "/dev/ttyUSB10\tFT232R\\u{0009}USB\tFTDI\tA50285BI\t0403:6001\n");
        QCOMPARE(listed.status, 0);
        const Answer json = onMachine({"ports", "--json"});
        QCOMPARE(json.out, R"({"description":"FT232R\tUSB","manufacturer":"FTDI","port":"/dev/ttyUSB10",)"
                           R"("productId":24577,"serialNumber":"A50285BI","vendorId":1027})"
                           "\n");
        QCOMPARE(json.status, 0);
        const Answer opened = onMachine({"info", "--port", "usb:0403:6001:A50285BI"});
        QVERIFY2(opened.error.startsWith("tavimora-cli info: Can't open serial port '/dev/ttyUSB10'. "), opened.error);
        QCOMPARE(opened.status, 1);
    }
};

QTEST_GUILESS_MAIN(ConsoleTest)
#include "ConsoleTest.moc"
