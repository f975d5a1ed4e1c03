#include "support/CommandLine.h"
#include "support/FileDescriptor.h"
#include "support/Printable.h"
#include "tools/devicesim/DeviceSim.h"
#include "tools/devicesim/PortLink.h"

#include <QCoreApplication>
#include <QFile>
#include <QJsonDocument>
#include <QSaveFile>
#include <QVersionNumber>

#include <csignal>
#include <cstdio>

#include <sys/signalfd.h>

namespace
{

using namespace devicesim;
using std::chrono::milliseconds;

constexpr const char* programName = "devicesim";
constexpr int longestTimeMs = 3'600'000;
constexpr std::uint32_t smallestBaudRate = 50;
constexpr std::uint32_t largestBaudRate = 100'000'000;

/// What the command line asks for.
struct Options {
    DeviceConfig device;
    /// Empty: where the list of ports finds it.
    QString linkPath;
    /// Empty: the memory is lost at the end.
    QString memoryFile;
    /// Empty: the other device of a swap holds the same.
    QString otherMemoryFile;
    /// Empty: no report.
    QString reportFile;
};

void addOptions(CommandLine& line)
{
    line.addOption("link", "PATH", "Put the link to the port at PATH, not where the list of ports finds it.");
    line.addOption("baud", "N", "Take the time that N bits per second take; without it, as fast as it goes.");
    line.addOption("device-id", "N", "Report N as the device's id (default 0x0300).");
    line.addOption("bootloader-version", "A.B.C", "Report this version of the bootloader (default 1.1.2).");
    line.addOption("firmware-version", "A.B.C", "Report this version of the firmware (default 2.2.3).");
    line.addFlag("echo", "Send every received byte back at once.");
    line.addOption("memory", "FILE",
        "Begin with the memory in FILE if it exists, and write it there at each reset and at the end.");
    line.addOption(
        "other-memory", "FILE", "What the device that comes with the fault swap holds; without it the same.");
    line.addOption("erase-time", "MS", "Take so long to erase.");
    line.addOption("write-time", "MS", "Take so long to write a block.");
    line.addOption("late-time", "MS", "How late a late reply is (default 500).");
    line.addOption("fault", "NAME[:VALUE]", "Let something go wrong, see below. May be given more than once.");
    line.addOption("seed", "N", "Random seed of the faults (default 1).");
    line.addFlag("once", "End after the first reset.");
    line.addOption("report", "FILE", "Write to FILE at the end, as JSON, what the device has seen.");
    line.addFlag("verbose", "Print a line per request to standard error.");
    line.addVersionFlag();
    line.setEpilogue('\n' + FaultPlan::help());
}

milliseconds takeTime(CommandLine& line, const QString& name, milliseconds byDefault)
{
    const std::optional<int> time = line.number(name, 0, longestTimeMs);
    return time ? milliseconds(*time) : byDefault;
}

/// @return the version as its word on the wire.
std::uint16_t takeVersion(CommandLine& line, const QString& name, std::uint16_t byDefault)
{
    const std::optional<QString> text = line.text(name);
    if (!text) {
        return byDefault;
    }
    qsizetype end = 0;
    const QVersionNumber version = QVersionNumber::fromString(*text, &end);
    const int major = version.majorVersion();
    const int minor = version.minorVersion();
    const int patch = version.microVersion();
    if (end != text->size() || version.segmentCount() != 3 || major > 15 || minor > 63 || patch > 63) {
        line.refuse(QString("--%1 wants A.B.C with A up to 15, B and C up to 63, not %2").arg(name, quoted(*text)));
    }
    return static_cast<std::uint16_t>(major << 12 | minor << 6 | patch);
}

Options takeOptions(CommandLine& line)
{
    Options options;
    DeviceConfig& device = options.device;
    Identity& identity = device.identity;
    identity.deviceId = line.number<std::uint16_t>("device-id", 0, UINT16_MAX).value_or(identity.deviceId);
    identity.bootloaderVersion = takeVersion(line, "bootloader-version", identity.bootloaderVersion);
    identity.firmwareVersion = takeVersion(line, "firmware-version", identity.firmwareVersion);
    device.baudRate = line.number("baud", smallestBaudRate, largestBaudRate).value_or(0);
    device.echo = line.isSet("echo");
    device.eraseTime = takeTime(line, "erase-time", device.eraseTime);
    device.writeTime = takeTime(line, "write-time", device.writeTime);
    device.lateTime = takeTime(line, "late-time", device.lateTime);
    if (const auto seed = line.number<std::int64_t>("seed", 0, INT64_MAX)) {
        device.seed = static_cast<std::uint64_t>(*seed);
    }
    device.once = line.isSet("once");
    for (const QString& fault : line.texts("fault")) {
        if (const QString problem = device.faults.add(fault); !problem.isEmpty()) {
            line.refuse(problem);
        }
    }
    if (line.isSet("verbose")) {
        device.onRequest = [](const RequestRecord& request) {
            std::fprintf(stderr, "%s\n", qPrintable(request.toLine()));
        };
    }
    options.linkPath = line.text("link").value_or(QString());
    options.memoryFile = line.text("memory").value_or(QString());
    options.otherMemoryFile = line.text("other-memory").value_or(QString());
    options.reportFile = line.text("report").value_or(QString());
    line.operands(0, "no arguments");
    return options;
}

/// Blocks the signals that end the program.
/// @return a descriptor that becomes readable when one of them comes.
FileDescriptor catchSignals()
{
    sigset_t signals = {};
    ::sigemptyset(&signals);
    for (const int number : {SIGINT, SIGTERM, SIGHUP}) {
        ::sigaddset(&signals, number);
    }
    ::pthread_sigmask(SIG_BLOCK, &signals, nullptr);
    return FileDescriptor(::signalfd(-1, &signals, SFD_CLOEXEC));
}

bool readMemory(const QString& path, std::vector<std::uint8_t>& memory)
{
    QFile file(path);
    if (path.isEmpty() || !file.exists()) {
        return true;
    }
    if (!file.open(QIODevice::ReadOnly)) {
        complain(programName, QString("cannot read '%1': %2").arg(path, file.errorString()));
        return false;
    }
    // A file that is no memory of a device must not be overwritten with one.
    constexpr qint64 largest = Memory::size;
    if (file.size() > largest) {
        complain(
            programName, QString("'%1' is longer than the %2 bytes of the device's memory").arg(path).arg(largest));
        return false;
    }
    const QByteArray content = file.readAll();
    memory.assign(content.begin(), content.end());
    return true;
}

bool writeFile(const QString& path, const QByteArray& content)
{
    if (path.isEmpty()) {
        return true;
    }
    QSaveFile file(path);
    if (!file.open(QIODevice::WriteOnly) || file.write(content) != content.size() || !file.commit()) {
        complain(programName, QString("cannot write '%1': %2").arg(path, file.errorString()));
        return false;
    }
    return true;
}

bool writeMemory(const QString& path, const std::vector<std::uint8_t>& memory)
{
    return writeFile(path, {reinterpret_cast<const char*>(memory.data()), static_cast<qsizetype>(memory.size())});
}

ExitStatus runUntilSignal(Options& options)
{
    if (!readMemory(options.memoryFile, options.device.memory) ||
        (!options.otherMemoryFile.isEmpty() &&
            !readMemory(options.otherMemoryFile, options.device.otherMemory.emplace()))) {
        return ExitStatus::Failure;
    }
    bool done = true;
    options.device.onReset = [&](const std::vector<std::uint8_t>& memory) {
        done = writeMemory(options.memoryFile, memory);
    };
    const FileDescriptor signals = catchSignals();
    DeviceSim device(options.device);
    if (!device.open()) {
        complain(programName, QString::fromStdString(device.errorString()));
        return ExitStatus::Failure;
    }
    PortLink link;
    const QString terminal = QString::fromStdString(device.portName());
    const QString problem =
        options.linkPath.isEmpty() ? link.makeListed(terminal) : link.make(options.linkPath, terminal);
    if (!problem.isEmpty()) {
        complain(programName, problem);
        return ExitStatus::Failure;
    }
    printOut(QString("A simulated device waits on the port %1 (%2)\n").arg(link.path(), terminal).toLocal8Bit());

    device.run(signals.get());
    done = writeMemory(options.memoryFile, device.memory()) && done;
    const DeviceReport report = device.report();
    done = writeFile(options.reportFile, QJsonDocument(report.toJson(device.memory())).toJson()) && done;
    if (report.hungUp) {
        complain(programName, "the line has hung up, as the fault asked");
    }
    return done ? ExitStatus::Success : ExitStatus::Failure;
}

} // namespace

int main(int argc, char* argv[])
{
    QCoreApplication::setApplicationName(programName);
    QCoreApplication::setApplicationVersion(TAVIMORA_VERSION);
    const QCoreApplication application(argc, argv);
    CommandLine line(programName, "[OPTION]...",
        "A device with a bootloader on a pseudo-terminal. Numbers may be hexadecimal (0x).");
    addOptions(line);
    line.parse(QCoreApplication::arguments().mid(1));
    Options options = takeOptions(line);
    if (const std::optional<ExitStatus> status = line.verdict()) {
        return static_cast<int>(*status);
    }
    return static_cast<int>(runUntilSignal(options));
}
