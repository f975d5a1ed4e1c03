// Burns 52 KiB with tavimora-cli on a simulated device on a paced line, and prints one JSON line for each baud rate:
// the time from the erase request to the reset request, the time of the bytes between them on the line (10 bits a
// byte), and the processor time and memory of tavimora-cli over the whole burn. Usage: BurnBench [BAUD ...], by default
// 57600 and 115200

#include "tests/support/IntelHex.h"
#include "tools/fwpack/Package.h"

#include <QCoreApplication>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QRandomGenerator>
#include <QTemporaryDir>

#include <cerrno>
#include <cstdio>
#include <optional>
#include <utility>

#include <fcntl.h>
#include <spawn.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

namespace
{

constexpr unsigned firstAddress = 0x3100;
constexpr qsizetype imageSize = 0x10000 - firstAddress;
constexpr double bitsPerByte = 10;

QByteArray firmwareFile(int baud)
{
    QByteArray image(imageSize, '\0');
    QRandomGenerator generator(1);
    for (char& byte : image) {
        byte = static_cast<char>(generator.generate());
    }
    return fwpack::makePackage({0x0300, "1", "bench", baud, 0}, hexText(QList{std::pair(firstAddress, image)}));
}

double seconds(const timeval& time)
{
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) / 1e6;
}

/// Runs tavimora-cli without its log and waits for its end.
/// @return what it has used; nothing if the burn failed.
std::optional<rusage> burn(const QString& port, const QString& firmware)
{
    QByteArray words[] = {
        TAVIMORA_CLI, "burn", "--port", QFile::encodeName(port), "--timeout", "30", QFile::encodeName(firmware)};
    char* arguments[] = {words[0].data(), words[1].data(), words[2].data(), words[3].data(), words[4].data(),
        words[5].data(), words[6].data(), nullptr};
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
    pid_t child = 0;
    const int error = posix_spawn(&child, arguments[0], &actions, nullptr, arguments, environ);
    posix_spawn_file_actions_destroy(&actions);
    if (error != 0) {
        return {};
    }
    int status = 0;
    rusage usage{};
    while (wait4(child, &status, 0, &usage) == -1 && errno == EINTR) {
    }
    return status == 0 ? std::optional(usage) : std::nullopt;
}

struct LineTimes {
    double seconds = 0;
    double lineSeconds = 0;
};

/// From the device's report: a request is 8 bytes, and the data that a write carries; a reply is one byte, or 8 and the
/// data that a read asks for.
LineTimes timesBetweenEraseAndReset(const QJsonArray& requests, int baud)
{
    double bytes = 0;
    double eraseMs = -1;
    double resetMs = -1;
    for (const auto& request : requests) {
        const QString command = request[QLatin1String("command")].toString();
        const double data = 2 * request[QLatin1String("count")].toString().toUInt(nullptr, 0);
        const double ms = request[QLatin1String("ms")].toDouble();
        if (eraseMs >= 0) {
            bytes += command == u"write" ? 8 + data : 8;
        }
        if (command == u"reset") {
            resetMs = ms;
            break;
        }
        if (command == u"erase") {
            eraseMs = ms;
        }
        if (eraseMs >= 0) {
            bytes += command == u"read" ? 8 + data : 1;
        }
    }
    return {(resetMs - eraseMs) / 1e3, bytes * bitsPerByte / baud};
}

bool measure(int baud)
{
    const QTemporaryDir folder;
    const QString firmware = folder.filePath("firmware.txt");
    const QString port = folder.filePath("port");
    const QString report = folder.filePath("report");
    QFile firmwareOutput(firmware);
    if (!firmwareOutput.open(QIODevice::WriteOnly) || firmwareOutput.write(firmwareFile(baud)) <= 0) {
        return false;
    }
    firmwareOutput.close();

    QProcess device;
    device.start(DEVICESIM, {"--once", "--link", port, "--baud", QString::number(baud), "--report", report});
    if (!device.waitForReadyRead()) {
        return false;
    }
    const auto usage = burn(port, firmware);
    if (!usage) {
        device.terminate();
    }
    device.waitForFinished();
    QFile reportFile(report);
    if (!usage || !reportFile.open(QIODevice::ReadOnly)) {
        return false;
    }
    const QJsonObject content = QJsonDocument::fromJson(reportFile.readAll()).object();
    const LineTimes times = timesBetweenEraseAndReset(content["lastRequests"].toArray(), baud);
    std::printf("{\"baud\": %d, \"bytes\": %lld, \"seconds\": %.3f, \"line_seconds\": %.3f, \"ratio\": %.4f, "
                "\"cpu_seconds\": %.3f, \"peak_memory_kib\": %ld}\n",
        baud, static_cast<long long>(imageSize), times.seconds, times.lineSeconds, times.seconds / times.lineSeconds,
        seconds(usage->ru_utime) + seconds(usage->ru_stime), usage->ru_maxrss);
    std::fflush(stdout);
    return true;
}

} // namespace

int main(int argc, char* argv[])
{
    const QCoreApplication application(argc, argv);
    QStringList rates = QCoreApplication::arguments().mid(1);
    if (rates.isEmpty()) {
        rates = {"57600", "115200"};
    }
    for (const QString& baud : std::as_const(rates)) {
        if (!measure(baud.toInt())) {
            std::fprintf(stderr, "BurnBench: the burn at %s baud failed\n", qPrintable(baud));
            return 1;
        }
    }
    return 0;
}
