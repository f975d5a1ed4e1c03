#include "tests/e2e/SimulatedDevice.h"

#include <QElapsedTimer>
#include <QRandomGenerator>
#include <QTest>
#include <QTimer>

#include <csignal>
#include <memory>
#include <vector>

namespace
{

constexpr int burnLimitMs = 180000;
constexpr int stopDelayMs = 700;
constexpr int stopLimitMs = 5000;
constexpr std::size_t burnsAtOnce = 8;

QByteArray someBytes(int count, quint32 seed)
{
    QByteArray bytes(count, '\0');
    QRandomGenerator(seed).generate(bytes.begin(), bytes.end());
    return bytes;
}

const Image someBlocks{{0x3100, someBytes(3000, 4)}, {0x8001, someBytes(701, 5)}};

/// The console program for Windows, which then burns in the place of the one for this machine.
const QString windowsProgram = qEnvironmentVariable("TAVIMORA_WINDOWS_CLI");

/// A burn of tavimora-cli on a simulated device whose memory is all 0, and what comes of it.
struct BurnCase {
    const char* name = "";
    Image image = {{0x3100, someBytes(512, 1)}};
    int baudRate = fastBaudRate;
    bool echo = false;
    QStringList deviceOptions = {};
    QStringList burnOptions = {};
    /// The burn gets a signal some time after a line of the log that begins so.
    QString stopAfter = {};
    /// On Wine, any other would end Wine itself.
    int signal = SIGINT;
    int exitStatus = stopAfter.isEmpty() ? 0 : 130;
    /// The reason on standard error begins so.
    QString error = stopAfter.isEmpty() ? "" : "Stopped by a signal";
};

const QString success = "Verification successful";

const std::vector<BurnCase> burnCases = {
    {.name = "52 KiB", .image = {{0x3100, someBytes(0x10000 - 0x3100, 2)}}},
    {.name = "2400 baud", .image = {{0x3100, someBytes(1024, 1)}}, .baudRate = 2400},
    {.name = "echo", .image = someBlocks, .baudRate = 115200, .echo = true},
    {.name = "late device", .deviceOptions = {"--fault", "late-start:4000"}},
    {.name = "no device",
        .deviceOptions = {"--fault", "late-start:600000"},
        .burnOptions = {"--timeout", "2"},
        .exitStatus = 3,
        .error = "No device has answered within 2 s"},
    {.name = "bit that never clears",
        .image = {{0x3100, QByteArray(2048, '\0')}},
        .deviceOptions = {"--fault", "stuck-bit:0x3400.3=1"},
        .exitStatus = 1,
        .error = "Verification failed: 1 of 4 blocks differ"},
    {.name = "bit that never sets",
        .deviceOptions = {"--fault", "stuck-bit:0x3100.0=0", "--erase-time", "100"},
        .exitStatus = 4,
        .error = "Gave up in Blank Checking: the memory is not blank after 3 erases. The device has no valid firmware"},
    {.name = "replies lost", .image = someBlocks, .deviceOptions = {"--fault", "drop:0.2"}},
    {.name = "hang-up in erase",
        .deviceOptions = {"--fault", "hangup@erase"},
        .stopAfter = "Erasing...",
        .signal = windowsProgram.isEmpty() ? SIGTERM : SIGINT,
        .error = "Stopped by a signal. The device may have been erased"},
    {.name = "hang-up in programming",
        .deviceOptions = {"--fault", "hangup@write"},
        .stopAfter = "Programming...",
        .error = "Stopped by a signal. The device has no valid firmware"},
    {.name = "hang-up in verification",
        .deviceOptions = {"--fault", "hangup@read"},
        .stopAfter = "Verifying...",
        .error = "Stopped by a signal. The device holds firmware that was not verified"},
    {.name = "hang-up at the reset", .deviceOptions = {"--fault", "hangup@reset"}},
    {.name = "stopped in the delay", .stopAfter = "Powerup delay..."},
};

QString text(const QByteArray& output)
{
    return QString::fromUtf8(output).remove('\r');
}

/// One burn with its device, each a process of its own.
class BurnRun : public QObject
{
public:
    /// Starts the device and the burn.
    explicit BurnRun(const BurnCase& which)
        : burnCase(which)
    {
        connect(&burn, &QProcess::readyReadStandardOutput, this, &BurnRun::takeLog);
        connect(&burn, &QProcess::finished, this, &BurnRun::takeResult);
        hasStarted = writeFirmware(firmwareFile, burnCase.image, burnCase.baudRate, burnCase.echo ? 1 : 0) &&
                     startDevice() && startBurn();
    }

    bool hasStarted = false;
    bool hasEnded = false;

    void check()
    {
        const int exitStatus = burn.exitStatus() == QProcess::NormalExit ? burn.exitCode() : -1;
        const bool equal = contentOf(device.memoryFile) == memoryWith(burnCase.image);
        const QByteArray context =
            QString("exit %1, memory equal %2\n%3%4").arg(exitStatus).arg(equal).arg(log, error).toUtf8();
        QVERIFY2(exitStatus == burnCase.exitStatus, context);
        QVERIFY2(exitStatus == 0 ? error.isEmpty() : error.startsWith("tavimora-cli burn: " + burnCase.error), context);
        QVERIFY2(stopLasted < stopLimitMs, context);
        QVERIFY2(exitStatus != 0 || equal, context);
        QVERIFY2(log.contains(success) == (exitStatus == 0), context);
        QVERIFY2(log.contains("Operation cancelled by user") == (exitStatus == 130), context);
        QVERIFY2(log.contains("Erasing") || contentOf(device.memoryFile) == device.untouched, context);
    }

private:
    bool startDevice()
    {
        QStringList options = {"--baud", QString::number(burnCase.baudRate)};
        if (burnCase.echo) {
            options += "--echo";
        }
        return device.start(options + burnCase.deviceOptions);
    }

    bool startBurn()
    {
        const QStringList arguments = QStringList{"burn", "--port", portName(), firmwareFile} + burnCase.burnOptions;
        if (windowsProgram.isEmpty()) {
            burn.start(TAVIMORA_CLI, arguments);
        } else {
            burn.start("wine", QStringList(windowsProgram) + arguments);
        }
        return burn.waitForStarted(programLimitMs);
    }

    /// Under which the burn finds the device. The registry of Wine says that COM20 and those behind it are links.
    QString portName() const
    {
        if (windowsProgram.isEmpty()) {
            return device.port;
        }
        const QString number = QString::number(20 + (&burnCase - burnCases.data()));
        const QString link = qEnvironmentVariable("WINEPREFIX") + "/ports/com" + number;
        QFile::remove(link);
        return QFile::link(device.port, link) ? "COM" + number : QString();
    }

    /// Stops the burn where that is wanted.
    void takeLog()
    {
        log += text(burn.readAllStandardOutput());
        if (!burnCase.stopAfter.isEmpty() && log.contains('\n' + burnCase.stopAfter) && !isStopDue) {
            isStopDue = true;
            QTimer::singleShot(stopDelayMs, &burn, [this] {
                sinceStop.start();
                if (burn.state() == QProcess::Running) { // otherwise its id is 0, which names this process group
                    ::kill(static_cast<pid_t>(burn.processId()), burnCase.signal); // Wine makes a Ctrl-C of SIGINT
                }
            });
        }
    }

    void takeResult()
    {
        takeLog();
        error = text(burn.readAllStandardError());
        stopLasted = sinceStop.isValid() ? sinceStop.elapsed() : 0;
        device.end();
        hasEnded = true;
    }

    const BurnCase& burnCase;
    SimulatedDevice device;
    const QString firmwareFile = device.folder.filePath("firmware.txt");
    /// Each line of the log stands between two line feeds.
    QString log = "\n";
    QString error;
    bool isStopDue = false;
    QElapsedTimer sinceStop;
    qint64 stopLasted = 0;
    /// The last member: it may end as late as in the destructor.
    QProcess burn;
};

} // namespace

/// Whole burns of the console program on a simulated device behind a pseudo-terminal.
class EndToEndTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void burns_data()
    {
        QTest::addColumn<std::size_t>("index");
        for (std::size_t i = 0; i < burnCases.size(); ++i) {
            QTest::newRow(burnCases[i].name) << i;
        }
    }

    /// Burns mostly wait, so that those of the next rows run beside that of this one.
    void burns()
    {
        QFETCH(std::size_t, index);
        runs.resize(burnCases.size());
        for (std::size_t i = index; i < std::min(index + burnsAtOnce, runs.size()); ++i) {
            if (!runs[i]) {
                runs[i] = std::make_unique<BurnRun>(burnCases[i]);
            }
        }
        QVERIFY(runs[index]->hasStarted);
        QTRY_VERIFY_WITH_TIMEOUT(runs[index]->hasEnded, burnLimitMs);
        runs[index]->check();
    }

private:
    std::vector<std::unique_ptr<BurnRun>> runs;
};

QTEST_GUILESS_MAIN(EndToEndTest)
#include "EndToEndTest.moc"
