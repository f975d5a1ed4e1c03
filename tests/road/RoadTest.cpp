#include "tests/support/IntelHex.h"

#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QProcess>
#include <QRandomGenerator>
#include <QRegularExpression>
#include <QTemporaryDir>
#include <QTest>

#include <algorithm>
#include <cstdlib>
#include <map>
#include <memory>
#include <utility>
#include <vector>

#include <fcntl.h>
#include <unistd.h>

namespace
{

constexpr int memorySize = 0x10000;
constexpr int startLimitMs = 60000;
constexpr int roadLimitMs = 180000;
constexpr std::size_t roadsAtOnce = 8;

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

Image holes(quint32 from, quint32 to, quint32 seed)
{
    QRandomGenerator generator(seed);
    Image image;
    for (quint32 address = from; address + 700 < to;) {
        const auto length = generator.bounded(1, 600);
        image[address] = someBytes(length, generator.generate());
        address += static_cast<quint32>(length) + generator.bounded(1u, 90u);
    }
    return image;
}

QByteArray memoryWith(const Image& image, char filler = '\xFF')
{
    QByteArray memory(memorySize, filler);
    for (const auto& [address, data] : image) {
        memory.replace(static_cast<qsizetype>(address), data.size(), data);
    }
    return memory;
}

QByteArray contentOf(const QString& path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

bool write(const QString& path, const QByteArray& content)
{
    QFile file(path);
    return file.open(QIODevice::WriteOnly) && file.write(content) == content.size();
}

/// No Intel HEX at all, only its padding, encrypted with `openssl enc -aes-128-ecb -nopad`. fwpack makes no such file.
const QByteArray emptyFirmware =
    R"({"header": {"device": 768, "baudrate": 4000000}, "image": "J2mGfnfKabnbzKIeubvSZg=="})";

struct Road {
    const char* name;
    Image image;
    QString device;
    QString header;
    QString burn;
    /// A line of the log at which the burn gets a SIGTERM some time later; empty for none.
    QString stopAt;
    int exitStatus;
    /// What the log holds, in this order.
    QStringList log;
    /// What standard error says, behind the name of the command; empty for nothing, or for anything if any exit status
    /// will do.
    QString reason = {};
    /// What the same file holds for a second burn on the same device, if there is one.
    Image next = {};
};

const Image oneBlock{{0x3100, someBytes(512, 1)}};
const Image dense{{0x3100, someBytes(0x10000 - 0x3100, 2)}};
const Image sparse = holes(0x1100, 0xFFFF, 3);
const Image someBlocks{{0x3100, someBytes(3000, 4)}, {0x8001, someBytes(701, 5)}};
const QString success = "Verification successful";
const QString stopped = "Stopped by a signal";

// At 4 million baud the time that the host gives the bytes to leave is short; the device paces nothing unless it says
// so.
const std::vector<Road> roads = {
    {"empty image", {}, "", "", "", "", 0, {"Erase successful", success, "Complete"}},
    {"one block", oneBlock, "", "", "", "", 0,
        {"Found device bootloader: v1.1.2", "Existing firmware: v2.2.3", success}},
    {"52 KiB", dense, "", "", "", "", 0, {success}},
    {"holes", sparse, "--erase-time 1200 --write-time 5", "", "", "", 0, {success}},
    {"9600 baud", oneBlock, "--baud 9600", "--baudrate 9600", "", "", 0, {success}},
    {"115200 baud", someBlocks, "--baud 115200", "--baudrate 115200", "", "", 0, {success}},
    {"echo", someBlocks, "--echo --baud 115200", "--link 1 --baudrate 115200", "", "", 0, {success}},
    {"late device", oneBlock, "--fault late-start:4000", "", "", "", 0, {success}},
    {"no device", oneBlock, "--fault late-start:600000", "", "--timeout 2", "", 3, {"Waiting for device.*"},
        "No device has answered within 2 s"},
    {"wrong device", oneBlock, "--device-id 0x0400", "", "", "", 1, {"Device is not support", "Complete"},
        "Device is not support"},
    {"above 0xFFFF", {{0xFFF8, someBytes(16, 6)}}, "", "", "", "", 1, {"Can't open input file. .*10000.*"},
        "Can't open input file. Data at address 0x10000 is out of reach of the bootloader"},
    {"failed blank check", oneBlock, "--fault dirty-blank", "", "", "", 0,
        {"Found bad memory block 03100:200", success}},
    {"bit that never clears", {{0x3100, QByteArray(2048, '\0')}}, "--fault stuck-bit:0x3400.3=1", "", "", "", 1,
        {"Data no match 03300:200", "Verification failed: 1 of 4 blocks differ", "Complete"},
        "Verification failed: 1 of 4 blocks differ"},
    {"bit that never sets", oneBlock, "--erase-time 100 --fault stuck-bit:0x3100.0=0", "", "",
        "Found bad memory block 03100:200", 130, {"Operation cancelled by user"}, stopped},
    {"replies lost", someBlocks, "--fault drop:0.2", "", "", "", 0, {success}},
    {"replies late", someBlocks, "--fault late:0.2", "", "", "", 0, {success}},
    {"link with a long delay", someBlocks, "--fault late:1 --late-time 150", "", "", "", 0, {success}},
    {"requests refused", someBlocks, "--fault refuse:0.3", "", "", "", 0, {success}},
    {"replies cut", someBlocks, "--fault cut:0.5", "", "", "", 0, {success}},
    {"bits flipped", someBlocks, "--fault flip:0.3", "", "", "", 0, {success}},
    {"noise", someBlocks, "--fault noise:0.5", "", "", "", 0, {success}},
    {"requests damaged", someBlocks, "--fault lose:0.2", "", "", "", 0, {success}},
    {"stray statuses", someBlocks, "--fault stray:0.2", "", "", "", -1, {}},
    {"several faults", someBlocks,
        "--fault drop:0.1 --fault late:0.1 --fault flip:0.1 --fault lose:0.1 --fault noise:0.2", "", "", "", -1, {}},
    {"all faults on a paced line", oneBlock,
        "--baud 57600 --fault drop:0.1 --fault late:0.1 --fault flip:0.1 "
        "--fault lose:0.1 --fault noise:0.1 --fault stray:0.1 --fault cut:0.2 --fault refuse:0.1",
        "--baudrate 57600", "", "", -1, {}},
    {"hang-up in the wait", oneBlock, "--fault hangup:1", "", "", "Waiting for device.*", 130, {}, stopped},
    {"hang-up in the delay", oneBlock, "--fault hangup:50", "", "", "Powerup delay.*", 130, {}, stopped},
    {"hang-up in erase", oneBlock, "--fault hangup:erase", "", "", "Erasing.*", 130, {}, stopped},
    {"hang-up in blank check", oneBlock, "--fault hangup:erase+1", "", "", "Blank Checking.*", 130, {}, stopped},
    {"hang-up in programming", oneBlock, "--fault hangup:write", "", "", "Programming.*", 130, {}, stopped},
    {"hang-up in verification", oneBlock, "--fault hangup:read", "", "", "Verifying.*", 130, {}, stopped},
    {"hang-up at the reset", oneBlock, "--fault hangup:reset", "", "", "", 0, {success, "Complete"}},
    {"file changed between two burns", someBlocks, "", "", "", "", 0, {success + "(.|\\n)*" + success}, "", oneBlock},
    {"stopped in the delay", oneBlock, "", "", "", "Powerup delay.*", 130, {"Operation cancelled by user"}, stopped},
};

/// What a program answers at once, without a device.
struct Answer {
    const char* name;
    const char* program;
    QStringList arguments;
    int exitStatus;
    /// What standard output and standard error begin with; nothing may stand there when it is empty.
    QString output;
    QString error;
};

const QString usage = "usage: tavimora-cli ports\n       tavimora-cli ";
const QString portsUsage = "usage: tavimora-cli ports\n\nLists the serial ports";
const std::vector<Answer> answers = {
    {"no command", TAVIMORA_CLI, {}, 2, "", "tavimora-cli: a command is missing\n" + usage},
    {"wrong command", TAVIMORA_CLI, {"prots"}, 2, "", "tavimora-cli: there is no command \"prots\"\n" + usage},
    {"help", TAVIMORA_CLI, {"help"}, 0, usage, ""},
    {"--help", TAVIMORA_CLI, {"--help"}, 0, usage, ""},
    {"--version", TAVIMORA_CLI, {"--version"}, 0, "tavimora-cli 1", ""},
    {"help ports", TAVIMORA_CLI, {"help", "ports"}, 0, portsUsage, ""},
    {"ports --help", TAVIMORA_CLI, {"ports", "--help"}, 0, portsUsage, ""},
    {"argument of ports", TAVIMORA_CLI, {"ports", "a"}, 2, "",
        "tavimora-cli ports: expected no arguments, not 1 argument\n"},
    {"burn --help", TAVIMORA_CLI, {"burn", "--help"}, 0, "usage: tavimora-cli burn --port NAME", ""},
    {"burn without a port", TAVIMORA_CLI, {"burn", "a"}, 2, "", "tavimora-cli burn: --port is missing\n"},
    {"time-out of 0", TAVIMORA_CLI, {"burn", "--port", "a", "--timeout", "0", "b"}, 2, "",
        "tavimora-cli burn: --timeout wants"},
    {"script/run --help", SCRIPT_RUN, {"--help"}, 0, "usage: script/run [--console]\n", ""},
    {"wrong argument of script/run", SCRIPT_RUN, {"--consol"}, 2, "", "run: unknown arguments: --consol\nusage: "},
};

/// One burn with its device, each a process of its own.
class Run
{
public:
    explicit Run(const Road& which)
        : road(which)
    {
    }

    bool start()
    {
        if (!write(memoryFile(), memoryWith({}, '\0')) ||
            !(road.image.empty() ? write(firmware(), emptyFirmware) : pack())) {
            return false;
        }
        return startDevice() && startBurn();
    }

    bool pack()
    {
        const QString hex = folder.filePath("image.hex");
        const QString header = road.header.contains("--baudrate") ? road.header : road.header + " --baudrate 4000000";
        const QStringList arguments = QStringList{"pack", "--device", "0x0300", "--version", "1", "--target", "road"} +
                                      header.split(' ', Qt::SkipEmptyParts) + QStringList{hex, firmware()};
        return write(hex, hexText(*image)) && QProcess::execute(FWPACK, arguments) == 0;
    }

    bool startDevice()
    {
        device.setProcessChannelMode(QProcess::ForwardedErrorChannel);
        device.start(
            DEVICESIM, QStringList{"--link", port(), "--memory", memoryFile(), "--report", folder.filePath("report")} +
                           road.device.split(' ', Qt::SkipEmptyParts));
        return device.waitForReadyRead(startLimitMs);
    }

    bool startBurn()
    {
        burn.start(
            TAVIMORA_CLI, QStringList{"burn", "--port", port(), firmware()} + road.burn.split(' ', Qt::SkipEmptyParts));
        clock.start();
        return burn.waitForStarted(startLimitMs);
    }

    /// Takes what there is of the log and stops the burn where the road wants it. @return whether it has ended.
    bool advance()
    {
        burn.waitForReadyRead(20);
        log += QString::fromUtf8(burn.readAll());
        if (stopDue < 0 && !road.stopAt.isEmpty() && matches(road.stopAt)) {
            stopDue = clock.elapsed() + 700;
        }
        if (stopSent < 0 && stopDue >= 0 && clock.elapsed() >= stopDue) {
            stopSent = clock.elapsed();
            burn.terminate();
        }
        if (clock.elapsed() > roadLimitMs) {
            burn.kill();
        }
        if (burn.state() != QProcess::NotRunning && !burn.waitForFinished(1)) {
            return false;
        }
        stopLasted = stopSent < 0 ? 0 : clock.elapsed() - stopSent;
        reason = QString::fromUtf8(burn.readAllStandardError());
        log += QString::fromUtf8(burn.readAll());
        if (!road.next.empty() && std::exchange(image, &road.next) == &road.image) {
            return !(pack() && startBurn());
        }
        device.terminate();
        device.waitForFinished(startLimitMs);
        return true;
    }

    void check()
    {
        const bool equal = contentOf(memoryFile()) == memoryWith(*image);
        const QByteArray context =
            QString("exit %1, memory equal %2\n%3%4").arg(burn.exitCode()).arg(equal).arg(log, reason).toUtf8();
        QVERIFY2(burn.exitStatus() == QProcess::NormalExit, context);
        QVERIFY2(road.exitStatus < 0 || burn.exitCode() == road.exitStatus, context);
        const QString expectedReason = road.reason.isEmpty() ? QString() : "tavimora-cli burn: " + road.reason + '\n';
        QVERIFY2(road.exitStatus < 0 || reason == expectedReason, context);
        QVERIFY2(log.contains("Operation cancelled by user") == (burn.exitCode() == 130), context);
        QVERIFY2((burn.exitCode() == 0) == log.contains(success), context);
        if (burn.exitCode() == 0) {
            QVERIFY2(equal, context);
        }
        if (road.exitStatus < 0) {
            QVERIFY2(burn.exitCode() == 0 || (burn.exitCode() == 1 && !equal), context);
        }
        for (const QString& line : road.log) {
            QVERIFY2(matches(line), (line.toUtf8() + " is missing: " + context));
        }
        QVERIFY2(stopLasted < 5000, context);
        QVERIFY2(log.contains("Erasing") || contentOf(memoryFile()) == memoryWith({}, '\0'), context);
    }

    QString firmware() const { return folder.filePath("firmware.txt"); }
    QString port() const { return folder.filePath("port"); }
    QString memoryFile() const { return folder.filePath("memory"); }

private:
    bool matches(const QString& line) const
    {
        return QRegularExpression("^" + line + "$", QRegularExpression::MultilineOption).match(log).hasMatch();
    }

    const Road& road;
    const Image* image = &road.image;
    QTemporaryDir folder;
    QProcess device;
    QProcess burn;
    QElapsedTimer clock;
    QString log;
    QString reason;
    qint64 stopDue = -1;
    qint64 stopSent = -1;
    qint64 stopLasted = 0;
};

} // namespace

/// Whole burns of the console program against a simulated device on a pseudo-terminal.
class RoadTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase()
    {
        std::vector<Run*> running;
        std::size_t next = 0;
        while (next < roads.size() || !running.empty()) {
            while (next < roads.size() && running.size() < roadsAtOnce) {
                runs.push_back(std::make_unique<Run>(roads[next]));
                QVERIFY2(runs.back()->start(), roads[next].name);
                running.push_back(runs.back().get());
                ++next;
            }
            std::erase_if(running, [](Run* run) { return run->advance(); });
        }
    }

    void road_data()
    {
        QTest::addColumn<int>("index");
        for (std::size_t i = 0; i < roads.size(); ++i) {
            QTest::newRow(roads[i].name) << static_cast<int>(i);
        }
    }

    void road()
    {
        QFETCH(int, index);
        runs[static_cast<std::size_t>(index)]->check();
    }

    void answer_data()
    {
        QTest::addColumn<int>("index");
        for (std::size_t i = 0; i < answers.size(); ++i) {
            QTest::newRow(answers[i].name) << static_cast<int>(i);
        }
    }

    void answer()
    {
        QFETCH(int, index);
        const Answer& wanted = answers[static_cast<std::size_t>(index)];
        QProcess program;
        program.start(wanted.program, wanted.arguments);
        QVERIFY(program.waitForFinished(startLimitMs));
        const QByteArray output = program.readAllStandardOutput();
        const QByteArray error = program.readAllStandardError();
        QVERIFY2(output.startsWith(wanted.output.toUtf8()) && output.isEmpty() == wanted.output.isEmpty(), output);
        QVERIFY2(error.startsWith(wanted.error.toUtf8()) && error.isEmpty() == wanted.error.isEmpty(), error);
        QCOMPARE(program.exitCode(), wanted.exitStatus);
    }

    /// Two virtual ports stand last in the list, behind what the machine has.
    void listOfPorts()
    {
        const int master = posix_openpt(O_RDWR | O_NOCTTY);
        QVERIFY(master >= 0 && grantpt(master) == 0 && unlockpt(master) == 0);
        const QTemporaryDir runtime;
        const QString folder = runtime.filePath("serial/");
        QVERIFY(QDir().mkdir(folder));
        QVERIFY(QFile::link(ptsname(master), folder + "a") && QFile::link(ptsname(master), folder + "another"));

        QProcess program;
        QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
        environment.insert("XDG_RUNTIME_DIR", runtime.path());
        program.setProcessEnvironment(environment);
        program.start(TAVIMORA_CLI, {"ports"});
        QVERIFY(program.waitForFinished(startLimitMs) && program.exitCode() == 0);
        const QString lines = folder + "a\t\t\t\t\n" + folder + "another\t\t\t\t\n";
        const QByteArray piped = program.readAllStandardOutput();
        QVERIFY2(piped.endsWith(lines.toUtf8()) && !piped.contains("Port"), piped);

        program.setStandardOutputFile(ptsname(master));
        program.start(TAVIMORA_CLI, {"ports"});
        QVERIFY(program.waitForFinished(startLimitMs) && program.exitCode() == 0);
        QByteArray table(4096, '\0');
        table.truncate(std::max<qsizetype>(read(master, table.data(), 4096), 0));
        close(master);
        QVERIFY2(table.endsWith((folder + "a\r\n" + folder + "another\r\n").toUtf8()), table);
        QVERIFY2(table.startsWith("Port ") && !table.contains('\t'), table);
        QVERIFY2(table.indexOf("Description") >= (folder + "another").size() + 2, table);
    }

private:
    std::vector<std::unique_ptr<Run>> runs;
};

QTEST_GUILESS_MAIN(RoadTest)
#include "RoadTest.moc"
