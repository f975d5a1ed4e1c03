#include "tools/devicesim/DeviceSim.h"
#include "tools/devicesim/Options.h"
#include "tools/devicesim/PortLink.h"
#include "tools/devicesim/UniqueFd.h"

#include <QCoreApplication>
#include <QFile>
#include <QJsonDocument>
#include <QSaveFile>

#include <array>
#include <csignal>
#include <cstdio>

#include <poll.h>
#include <sys/eventfd.h>
#include <sys/signalfd.h>

namespace
{

using namespace devicesim;

constexpr int exitFailure = 1;
constexpr int exitUsage = 2;

void complain(const QString& text)
{
    std::fprintf(stderr, "devicesim: %s\n", qUtf8Printable(text));
}

/// Takes the signals that end the program out of the way of all threads.
/// @return a descriptor that becomes readable when one comes.
UniqueFd catchSignals()
{
    sigset_t signals = {};
    ::sigemptyset(&signals);
    for (const int number : {SIGINT, SIGTERM, SIGHUP}) {
        ::sigaddset(&signals, number);
    }
    ::pthread_sigmask(SIG_BLOCK, &signals, nullptr);
    return UniqueFd(::signalfd(-1, &signals, SFD_CLOEXEC));
}

bool readMemory(const QString& path, std::vector<std::uint8_t>& memory)
{
    QFile file(path);
    if (path.isEmpty() || !file.exists()) {
        return true;
    }
    if (!file.open(QIODevice::ReadOnly)) {
        complain(QStringLiteral("cannot read '%1': %2").arg(path, file.errorString()));
        return false;
    }
    // What is no memory of a device must not be overwritten with one.
    constexpr auto largest = static_cast<qint64>(DeviceMemory::size);
    if (file.size() > largest) {
        complain(QStringLiteral("'%1' is longer than the %2 bytes of the device's memory").arg(path).arg(largest));
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
        complain(QStringLiteral("cannot write '%1': %2").arg(path, file.errorString()));
        return false;
    }
    return true;
}

bool writeMemory(const QString& path, const DeviceSim& device)
{
    const std::vector<std::uint8_t> memory = device.memory();
    return writeFile(
        path, QByteArray(reinterpret_cast<const char*>(memory.data()), static_cast<qsizetype>(memory.size())));
}

/// Waits for the end of the device or a signal, and saves the memory at each reset.
/// @return false when the memory could not be saved.
bool attend(const DeviceSim& device, int signalDescriptor, const QString& memoryFile)
{
    bool saved = true;
    for (;;) {
        std::array<pollfd, 2> sources = {{{signalDescriptor, POLLIN, 0}, {device.activityDescriptor(), POLLIN, 0}}};
        ::poll(sources.data(), sources.size(), -1);
        if (sources[0].revents != 0) {
            return saved;
        }
        eventfd_t count = 0;
        ::eventfd_read(device.activityDescriptor(), &count);
        saved = writeMemory(memoryFile, device);
        if (device.waitForEnd(std::chrono::milliseconds(0))) {
            return saved;
        }
    }
}

int runDevice(Options& options)
{
    if (!readMemory(options.memoryFile, options.device.memory)) {
        return exitFailure;
    }
    if (options.verbose) {
        options.device.onRequest = [](const RequestRecord& request) {
            std::fprintf(stderr, "%s\n", request.toLine().c_str());
        };
    }
    const UniqueFd signals = catchSignals();
    DeviceSim device(options.device);
    if (!device.start()) {
        complain(QString::fromStdString(device.errorString()));
        return exitFailure;
    }
    PortLink link;
    const QString terminal = QString::fromStdString(device.portName());
    const QString problem =
        options.linkPath.isEmpty() ? link.makeListed(terminal) : link.make(options.linkPath, terminal);
    if (!problem.isEmpty()) {
        complain(problem);
        return exitFailure;
    }
    std::printf(
        "A simulated device waits on the port %s (%s)\n", qUtf8Printable(link.path()), qUtf8Printable(terminal));
    std::fflush(stdout);

    bool done = attend(device, signals.get(), options.memoryFile);
    device.stop();
    done = writeMemory(options.memoryFile, device) && done;
    const DeviceReport report = device.report();
    done = writeFile(options.reportFile, QJsonDocument(report.toJson(device.memory())).toJson()) && done;
    if (report.hungUp) {
        complain(QStringLiteral("the line has hung up, as the fault asked"));
    }
    return done ? 0 : exitFailure;
}

} // namespace

int main(int argc, char* argv[])
{
    const QCoreApplication application(argc, argv);
    Options options;
    const QString problem = readOptions(QCoreApplication::arguments(), options);
    if (!problem.isEmpty()) {
        complain(problem);
        return exitUsage;
    }
    if (!options.help.isEmpty()) {
        std::fputs(qUtf8Printable(options.help), stdout);
        return 0;
    }
    return runDevice(options);
}
