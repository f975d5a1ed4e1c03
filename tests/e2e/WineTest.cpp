#include "tests/e2e/SimulatedDevice.h"

#include <QDir>
#include <QRegularExpression>
#include <QTest>

/// What is special to the console program TAVIMORA_WINDOWS_CLI for Windows, on Wine. EndToEndTest burns with it.
class WineTest : public QObject
{
    Q_OBJECT

    const QString program = qEnvironmentVariable("TAVIMORA_WINDOWS_CLI");
    const QTemporaryDir folder{QDir::tempPath() + "/Grüße aus Łódź XXXXXX"};
    const QString firmwareFile = folder.filePath("Gerät 1 – neu.txt");

    static QString text(const QByteArray& output) { return QString::fromUtf8(output).remove('\r'); }

    /// @return what a program for Windows prints, and its exit status
    static QString run(const QStringList& arguments)
    {
        const Answer answer = ::run("wine", arguments);
        return text(answer.out + answer.error) + QString::number(answer.status);
    }

private Q_SLOTS:
    void initTestCase()
    {
        if (program.isEmpty()) {
            QSKIP("script/windows test runs this on Wine");
        }
        QVERIFY(writeFirmware(firmwareFile, {{0x3100, "x"}}, 115200));
    }

    void listsThePortsOfTheRegistry()
    {
        const auto names = [](const QString& output) {
            QStringList found;
            for (auto match = QRegularExpression("\\bCOM\\d+\\b").globalMatch(output); match.hasNext();) {
                found << match.next().captured();
            }
            return found;
        };
        const QStringList expected = names(run({"reg", "query", "HKLM\\HARDWARE\\DEVICEMAP\\SERIALCOMM"}));
        QVERIFY(expected.contains("COM20"));
        // Wine writes the list anew while it starts.
        QTRY_COMPARE(names(run({program, "ports"})), expected);
    }

    /// Error texts of Windows end with a line end, and names have characters that the code page of no console has.
    void texts()
    {
        const QString lostFile = folder.filePath("Öl & Müll.txt");
        const QString refusal = "Can't open serial port 'COM99'. File not found.\n";
        QCOMPARE(run({program, "info", "--port", "COM99"}), refusal + "tavimora-cli info: " + refusal + '1');
        QCOMPARE(
            run({program, "show", lostFile}), "tavimora-cli show: " + lostFile + ": does not load: File not found.\n1");
    }

    void stopsAtTheEndOfTheSession()
    {
        SimulatedDevice device;
        QVERIFY(device.start({"--erase-time", "3000"}));
        QVERIFY(QFile::link(device.port, qEnvironmentVariable("WINEPREFIX") + "/ports/com78"));
        QProcess burn;
        burn.setProcessChannelMode(QProcess::MergedChannels);
        burn.start("wine", {program, "burn", "--port", "COM78", firmwareFile});
        QString log;
        const auto isErasing = [&] {
            burn.waitForReadyRead(10);
            return (log += text(burn.readAll())).contains("\nErasing");
        };
        QTRY_VERIFY_WITH_TIMEOUT(isErasing(), programLimitMs);
        run({"wineboot", "--end-session"});
        QVERIFY(burn.waitForFinished(programLimitMs));
        log += text(burn.readAll());
        QVERIFY2(burn.exitCode() == 130 && log.contains("\nOperation cancelled by user\n"), qPrintable(log));
    }
};

QTEST_GUILESS_MAIN(WineTest)
#include "WineTest.moc"
