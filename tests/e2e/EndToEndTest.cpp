#include "tests/e2e/SimulatedDevice.h"
#include "tests/support/IntelHex.h"
#include "tools/fwpack/Package.h"

#include <QElapsedTimer>
#include <QRandomGenerator>
#include <QTest>

#include <csignal>
#include <deque>
#include <map>
#include <memory>
#include <optional>
#include <vector>

namespace
{

constexpr int memorySize = 0x10000;
constexpr int startLimitMs = 60000;
constexpr int burnLimitMs = 180000;
constexpr int stopDelayMs = 700;
constexpr int stopLimitMs = 5000;
constexpr int fastBaudRate = 4000000;
constexpr std::size_t burnsAtOnce = 8;

/// Bytes of a device's memory by their address.
using Image = std::map<quint32, QByteArray>;

QByteArray someBytes(int count, quint32 seed)
{
    QRandomGenerator generator(seed);
    QByteArray bytes(count, '\0');
    for (char& byte : bytes) {
        byte = static_cast<char>(generator.generate());
    }
    return bytes;
}

/// A hundred pieces of different lengths, with 1 to 600 unused bytes between them.
Image imageWithHoles()
{
    Image image;
    for (quint32 i = 0; i < 100; ++i) {
        image[0x1100 + 601 * i] = someBytes(static_cast<int>(1 + 37 * i % 600), i);
    }
    return image;
}

const Image oneBlock{{0x3100, someBytes(512, 1)}};
const Image someBlocks{{0x3100, someBytes(3000, 4)}, {0x8001, someBytes(701, 5)}};

/// The console program for Windows, which then burns in the place of the one for this machine.
const QString windowsProgram = qEnvironmentVariable("TAVIMORA_WINDOWS_CLI");

/// A burn of tavimora-cli on a simulated device whose memory is all 0, and what comes of it.
struct BurnCase {
    const char* name = "";
    Image image = oneBlock;
    /// Of a line that takes the time of its bytes; 0 for one that takes next to none.
    int baudRate = 0;
    bool echo = false;
    QStringList faults = {};
    QStringList deviceOptions = {};
    QStringList burnOptions = {};
    /// The burn gets a signal some time after a line of the log that begins so, and ends with status 130.
    QString stopAfter = {};
    /// On Wine, any other would end Wine itself.
    int signal = SIGINT;
    /// Of a burn that is not stopped; nothing where the faults decide whether it succeeds or fails.
    std::optional<int> exitStatus = 0;
    /// Lines of the log, in this order.
    QStringList log = {};
    /// The reason of a failure on standard error begins so.
    QString error = exitStatus == 0 && !stopAfter.isEmpty() ? "Stopped by a signal" : QString();
};

const QString success = "Verification successful";
const QString outOfReach = "Can't open input file. Data at address 0x10000 is out of reach of the bootloader";
const QString oneBadBlock = "Verification failed: 1 of 4 blocks differ";
const QString notBlank = "Found bad memory block 03100:200";

const std::vector<BurnCase> burnCases = {
    {.name = "empty image", .image = {}, .log = {"Erase successful", success, "Complete"}},
    {.name = "one block", .log = {"Found device bootloader: v1.1.2", "Existing firmware: v2.2.3", success}},
    {.name = "52 KiB", .image = {{0x3100, someBytes(0x10000 - 0x3100, 2)}}},
    {.name = "holes", .image = imageWithHoles(), .deviceOptions = {"--erase-time", "1200", "--write-time", "5"}},
    {.name = "9600 baud", .baudRate = 9600},
    {.name = "115200 baud", .image = someBlocks, .baudRate = 115200},
    {.name = "echo", .image = someBlocks, .baudRate = 115200, .echo = true},
    {.name = "late device", .faults = {"late-start:4000"}},
    {.name = "no device",
        .faults = {"late-start:600000"},
        .burnOptions = {"--timeout", "2"},
        .exitStatus = 3,
        .error = "No device has answered within 2 s"},
    {.name = "wrong device",
        .deviceOptions = {"--device-id", "0x0400"},
        .exitStatus = 1,
        .log = {"Device is not support", "Complete"},
        .error = "Device is not support"},
    {.name = "above 0xFFFF",
        .image = {{0xFFF8, someBytes(16, 6)}},
        .exitStatus = 1,
        .log = {outOfReach},
        .error = outOfReach},
    {.name = "failed blank check", .faults = {"not-blank@blank-check.1"}, .log = {notBlank, success}},
    {.name = "bit that never clears",
        .image = {{0x3100, QByteArray(2048, '\0')}},
        .faults = {"stuck-bit:0x3400.3=1"},
        .exitStatus = 1,
        .log = {"Data no match 03300:200", oneBadBlock, "Complete"},
        .error = oneBadBlock},
    {.name = "bit that never sets",
        .faults = {"stuck-bit:0x3100.0=0"},
        .deviceOptions = {"--erase-time", "100"},
        .exitStatus = 4,
        .log = {notBlank, notBlank, notBlank},
        .error = "Gave up in Blank Checking: the memory is not blank after 3 erases. The device has no valid firmware"},
    {.name = "replies lost", .image = someBlocks, .faults = {"drop:0.2"}},
    {.name = "replies late", .image = someBlocks, .faults = {"late:0.2"}},
    {.name = "long delay", .image = someBlocks, .faults = {"late:1"}, .deviceOptions = {"--late-time", "150"}},
    {.name = "requests refused", .image = someBlocks, .faults = {"refuse:0.3"}},
    {.name = "replies cut", .image = someBlocks, .faults = {"cut:0.5"}},
    {.name = "bits flipped", .image = someBlocks, .faults = {"flip:0.3"}},
    {.name = "noise", .image = someBlocks, .faults = {"noise:0.5"}},
    {.name = "requests damaged", .image = someBlocks, .faults = {"lose:0.2"}},
    {.name = "stray statuses", .image = someBlocks, .faults = {"stray:0.2"}, .exitStatus = {}},
    {.name = "hang-up in the wait", .faults = {"hangup@version.1"}, .stopAfter = "Waiting for device"},
    {.name = "hang-up in the delay", .faults = {"hangup@ping.40"}, .stopAfter = "Powerup delay..."},
    {.name = "hang-up in erase",
        .faults = {"hangup@erase"},
        .stopAfter = "Erasing...",
        .signal = windowsProgram.isEmpty() ? SIGTERM : SIGINT,
        .error = "Stopped by a signal. The device may have been erased"},
    {.name = "hang-up in blank check", .faults = {"hangup@blank-check"}, .stopAfter = "Blank Checking..."},
    {.name = "hang-up in programming", .faults = {"hangup@write"}, .stopAfter = "Programming..."},
    {.name = "hang-up in verification", .faults = {"hangup@read"}, .stopAfter = "Verifying..."},
    {.name = "hang-up at the reset", .faults = {"hangup@reset"}, .log = {success, "Complete"}},
    {.name = "stopped in the delay", .stopAfter = "Powerup delay..."},
};

/// On Wine a read may never end when bytes come in the moment in which its limit is over.
bool isOutOfReach(const BurnCase& burnCase)
{
    return !windowsProgram.isEmpty() && !burnCase.faults.filter("late:").isEmpty();
}

QString text(const QByteArray& output)
{
    return QString::fromUtf8(output).remove('\r');
}

QByteArray memoryWith(const Image& image, char filler = '\xFF')
{
    QByteArray memory(memorySize, filler);
    for (const auto& [address, data] : image) {
        memory.replace(static_cast<qsizetype>(address), data.size(), data);
    }
    return memory;
}

/// One burn with its device, each a process of its own.
class BurnRun
{
public:
    explicit BurnRun(const BurnCase& which)
        : burnCase(which)
    {
    }

    /// Starts the device and the burn.
    void start() { ended = !(makeFirmware() && startDevice() && startBurn()); }

    bool hasEnded() const { return ended; }

    /// Takes what there is of the log, and stops the burn where that is wanted.
    void advance()
    {
        burn.waitForReadyRead(20);
        log += text(burn.readAll());
        if (!stopDue && !burnCase.stopAfter.isEmpty() && log.contains('\n' + burnCase.stopAfter)) {
            stopDue = clock.elapsed() + stopDelayMs;
        }
        if (!stopSent && stopDue && clock.elapsed() >= *stopDue) {
            stopSent = clock.elapsed();
            if (burn.state() == QProcess::Running) { // otherwise its id is 0, which names this process group
                ::kill(static_cast<pid_t>(burn.processId()), burnCase.signal); // Wine makes a Ctrl-C of SIGINT
            }
        }
        if (clock.elapsed() > burnLimitMs) {
            burn.kill();
        }
        if (burn.state() == QProcess::NotRunning || burn.waitForFinished(1)) {
            takeResult();
        }
    }

    void check()
    {
        const int exitStatus = burn.exitCode();
        const bool equal = contentOf(device.memoryFile) == memoryWith(burnCase.image);
        const QByteArray context =
            QString("exit %1, memory equal %2\n%3%4").arg(exitStatus).arg(equal).arg(log, error).toUtf8();
        QVERIFY2(clock.isValid() && burn.exitStatus() == QProcess::NormalExit, context);
        if (!burnCase.stopAfter.isEmpty()) {
            QVERIFY2(exitStatus == 130 && error.startsWith("tavimora-cli burn: " + burnCase.error), context);
            QVERIFY2(stopSent && stopLasted < stopLimitMs, context);
        } else if (burnCase.exitStatus) {
            QVERIFY2(exitStatus == *burnCase.exitStatus, context);
            QVERIFY2(
                exitStatus == 0 ? error.isEmpty() : error.startsWith("tavimora-cli burn: " + burnCase.error), context);
        } else {
            QVERIFY2(exitStatus == (equal ? 0 : 1), context);
        }
        QVERIFY2(exitStatus != 0 || equal, context);
        QVERIFY2(log.contains(success) == (exitStatus == 0), context);
        QVERIFY2(log.contains("Operation cancelled by user") == (exitStatus == 130), context);
        QVERIFY2(log.contains("Erasing") || contentOf(device.memoryFile) == device.untouched, context);
        qsizetype at = 0;
        for (const QString& line : burnCase.log) {
            at = log.indexOf('\n' + line + '\n', at);
            QVERIFY2(at >= 0, (line.toUtf8() + " is missing: " + context));
            ++at;
        }
    }

private:
    bool makeFirmware()
    {
        const int baudRate = burnCase.baudRate > 0 ? burnCase.baudRate : fastBaudRate;
        const fwpack::PackageHeader header = {
            .device = 0x0300, .version = "1", .target = "e2e", .baudrate = baudRate, .link = burnCase.echo ? 1 : 0};
        return write(firmwareFile, fwpack::makePackage(header, hexText(burnCase.image)));
    }

    bool startDevice()
    {
        QStringList options = burnCase.deviceOptions;
        for (const QString& fault : burnCase.faults) {
            options += {"--fault", fault};
        }
        if (burnCase.baudRate > 0) {
            options += {"--baud", QString::number(burnCase.baudRate)};
        }
        if (burnCase.echo) {
            options += "--echo";
        }
        return device.start(options);
    }

    bool startBurn()
    {
        const QStringList arguments = QStringList{"burn", "--port", portName(), firmwareFile} + burnCase.burnOptions;
        if (windowsProgram.isEmpty()) {
            burn.start(TAVIMORA_CLI, arguments);
        } else {
            burn.start("wine", QStringList(windowsProgram) + arguments);
        }
        clock.start();
        return burn.waitForStarted(startLimitMs);
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

    void takeResult()
    {
        log += text(burn.readAll());
        error = text(burn.readAllStandardError());
        stopLasted = clock.elapsed() - stopSent.value_or(0);
        device.end();
        ended = true;
    }

    const BurnCase& burnCase;
    SimulatedDevice device;
    const QString firmwareFile = device.folder.filePath("firmware.txt");
    QProcess burn;
    QElapsedTimer clock;
    bool ended = false;
    /// Each line of the log stands between two line feeds.
    QString log = "\n";
    QString error;
    std::optional<qint64> stopDue;
    std::optional<qint64> stopSent;
    qint64 stopLasted = 0;
};

} // namespace

/// Whole burns of the console program on a simulated device behind a pseudo-terminal.
class EndToEndTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void burns_data()
    {
        QTest::addColumn<int>("index");
        for (std::size_t i = 0; i < burnCases.size(); ++i) {
            QTest::newRow(burnCases[i].name) << static_cast<int>(i);
        }
    }

    void burns()
    {
        QFETCH(int, index);
        if (runs.empty()) {
            takeRows();
        }
        if (isOutOfReach(burnCases[static_cast<std::size_t>(index)])) {
            QSKIP("Wine has reads without end when replies come late");
        }
        BurnRun& run = *runs[static_cast<std::size_t>(index)];
        while (!run.hasEnded()) {
            advanceAll();
        }
        run.check();
    }

private:
    /// The rows that are to be executed: those that the command line names as "burns:NAME", or all.
    void takeRows()
    {
        const QStringList arguments = QCoreApplication::arguments();
        const bool all = arguments.contains("burns") || arguments.filter("burns:").isEmpty();
        for (const BurnCase& burnCase : burnCases) {
            runs.push_back(std::make_unique<BurnRun>(burnCase));
            if (isOutOfReach(burnCase)) {
                continue;
            }
            if (all || arguments.contains(QString("burns:") + burnCase.name)) {
                waiting.push_back(runs.back().get());
            }
        }
    }

    /// Burns mostly wait, so they run side by side, whichever row asks for its own.
    void advanceAll()
    {
        while (!waiting.empty() && running.size() < burnsAtOnce) {
            running.push_back(waiting.front());
            waiting.pop_front();
            running.back()->start();
        }
        std::erase_if(running, [](const BurnRun* run) { return run->hasEnded(); });
        for (BurnRun* run : running) {
            run->advance();
        }
    }

    std::vector<std::unique_ptr<BurnRun>> runs;
    std::deque<BurnRun*> waiting;
    std::vector<BurnRun*> running;
};

QTEST_GUILESS_MAIN(EndToEndTest)
#include "EndToEndTest.moc"
