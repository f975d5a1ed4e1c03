#include <QDir>
#include <QProcess>
#include <QTemporaryDir>
#include <QTest>

#include <cstdlib>

#include <fcntl.h>
#include <unistd.h>

/// What the console program answers without a device.
class ConsoleTest : public QObject
{
    Q_OBJECT

    QProcess program;

    bool run(const QString& path, const QStringList& arguments)
    {
        program.start(path, arguments);
        return program.waitForFinished();
    }

private Q_SLOTS:
    void answers_data()
    {
        const QString usage = "usage: tavimora-cli ports\n       tavimora-cli ";
        const QString portsHelp = "usage: tavimora-cli ports\n\nLists the serial ports";
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
        row("help", cli, {"help"}, 0, usage, "");
        row("--help", cli, {"--help"}, 0, usage, "");
        row("--version", cli, {"--version"}, 0, "tavimora-cli 1", "");
        row("help ports", cli, {"help", "ports"}, 0, portsHelp, "");
        row("ports --help", cli, {"ports", "--help"}, 0, portsHelp, "");
        row("argument of ports", cli, {"ports", "a"}, 2, "", "tavimora-cli ports: expected no arguments");
        row("burn --help", cli, {"burn", "--help"}, 0, "usage: tavimora-cli burn --port NAME", "");
        row("burn without a port", cli, {"burn", "a"}, 2, "", "tavimora-cli burn: --port is missing\n");
        row("time-out of 0", cli, {"burn", "--port", "a", "--timeout", "0", "b"}, 2, "",
            "tavimora-cli burn: --timeout wants a number from 1 to ");
        row("script/run --help", SCRIPT_RUN, {"--help"}, 0, "usage: script/run [--console]\n", "");
        row("wrong argument of script/run", SCRIPT_RUN, {"--consol"}, 2, "",
            "run: unknown arguments: --consol\nusage: ");
    }

    void answers()
    {
        QFETCH(QString, path);
        QFETCH(QStringList, arguments);
        QFETCH(QString, output);
        QFETCH(QString, error);
        QVERIFY(run(path, arguments));
        const QByteArray written = program.readAllStandardOutput();
        const QByteArray complaint = program.readAllStandardError();
        QVERIFY2(written.startsWith(output.toUtf8()) && written.isEmpty() == output.isEmpty(), written);
        QVERIFY2(complaint.startsWith(error.toUtf8()) && complaint.isEmpty() == error.isEmpty(), complaint);
        QTEST(program.exitCode(), "exitStatus");
    }

    /// Two virtual ports stand last in the list, behind what the machine has.
    void ports()
    {
        const int master = posix_openpt(O_RDWR | O_NOCTTY);
        QVERIFY(master >= 0 && grantpt(master) == 0 && unlockpt(master) == 0);
        const QTemporaryDir runtime;
        const QString folder = runtime.filePath("serial/");
        QVERIFY(QDir().mkdir(folder));
        QVERIFY(QFile::link(ptsname(master), folder + "a") && QFile::link(ptsname(master), folder + "another"));
        qputenv("XDG_RUNTIME_DIR", runtime.path().toLocal8Bit());

        QVERIFY(run(TAVIMORA_CLI, {"ports"}) && program.exitCode() == 0);
        const QByteArray piped = program.readAllStandardOutput();
        const QString fields = folder + "a\t\t\t\t\n" + folder + "another\t\t\t\t\n";
        QVERIFY2(piped.endsWith(fields.toUtf8()) && !piped.contains("Port"), piped);

        program.setStandardOutputFile(ptsname(master));
        QVERIFY(run(TAVIMORA_CLI, {"ports"}) && program.exitCode() == 0);
        QByteArray table;
        for (char byte = 0; read(master, &byte, 1) == 1;) {
            table += byte;
        }
        close(master);
        QVERIFY2(table.endsWith((folder + "a\r\n" + folder + "another\r\n").toUtf8()), table);
        QVERIFY2(table.startsWith("Port ") && !table.contains('\t'), table);
        QVERIFY2(table.indexOf("Description") >= (folder + "another").size() + 2, table);
    }
};

QTEST_GUILESS_MAIN(ConsoleTest)
#include "ConsoleTest.moc"
