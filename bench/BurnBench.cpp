// Burns 52 KiB on a simulated device whose line takes the time of a real one, and prints one JSON line for each baud
// rate: the time from the erase request to the reset request beside the time that the bytes between them take on the
// line (10 bits a byte), and what tavimora-cli took of the processor and the memory over the whole burn. Usage:
// BurnBench [BAUD ...], 57600 and 115200 if nothing is said

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

#include <fcntl.h>
#include <spawn.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

namespace
{

constexpr quint32 firstAddress = 0x3100;
constexpr qsizetype imageSize = 0x10000 - firstAddress;
constexpr double bitsPerByte = 10;

struct Usage {
    bool succeeded = false;
    double cpuSeconds = 0;
    long peakKiB = 0;
};

double seconds(const timeval& time)
{
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) / 1e6;
}

/// Runs tavimora-cli, whose log goes to a file, and waits for its end.
Usage burn(const QByteArray& port, const QByteArray& file, const QByteArray& log)
{
    QByteArray words[] = {TAVIMORA_CLI, "burn", "--port", port, "--timeout", "30", file};
    char* arguments[] = {words[0].data(), words[1].data(), words[2].data(), words[3].data(), words[4].data(),
        words[5].data(), words[6].data(), nullptr};
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, log, O_WRONLY | O_CREAT | O_TRUNC, 0600);
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
    return {status == 0, seconds(usage.ru_utime) + seconds(usage.ru_stime), usage.ru_maxrss};
}

struct LineTimes {
    double seconds = 0;
    double lineSeconds = 0;
};

/// Out of the device's report: a request is 8 bytes, and the data that a write carries; a reply is one byte, or 8 and
/// the data that a read asks for.
LineTimes timesBetweenEraseAndReset(const QJsonArray& requests, double baud)
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

bool measure(const QString& baud)
{
    const QTemporaryDir folder;
    const QString firmware = folder.filePath(QStringLiteral("firmware.txt"));
    const QString port = folder.filePath(QStringLiteral("port"));
    const QString report = folder.filePath(QStringLiteral("report"));
    const QString image = folder.filePath(QStringLiteral("image"));
    const QString hex = folder.filePath(QStringLiteral("image.hex"));

    QByteArray bytes(imageSize, '\0');
    QRandomGenerator generator(1);
    for (char& byte : bytes) {
        byte = static_cast<char>(generator.generate());
    }
    QFile file(image);
    if (!file.open(QIODevice::WriteOnly) || file.write(bytes) != bytes.size()) {
        return false;
    }
    file.close();
    const QStringList toHex = {
        "-I", "binary", "-O", "ihex", "--change-addresses", QString::number(firstAddress), image, hex};
    const QStringList pack = {
        "pack", "--device", "0x0300", "--version", "1", "--target", "bench", "--baudrate", baud, hex, firmware};
    if (QProcess::execute("objcopy", toHex) != 0 || QProcess::execute(FWPACK, pack) != 0) {
        return false;
    }

    QProcess device;
    device.start(DEVICESIM, {"--once", "--link", port, "--baud", baud, "--report", report});
    if (!device.waitForReadyRead()) {
        return false;
    }
    const Usage usage = burn(QFile::encodeName(port), QFile::encodeName(firmware),
        QFile::encodeName(folder.filePath(QStringLiteral("log"))));
    if (!usage.succeeded) {
        device.terminate();
        device.waitForFinished();
        return false;
    }
    device.waitForFinished();

    QFile reportFile(report);
    if (!reportFile.open(QIODevice::ReadOnly)) {
        return false;
    }
    const QJsonArray requests =
        QJsonDocument::fromJson(reportFile.readAll()).object()[QLatin1String("lastRequests")].toArray();
    const LineTimes times = timesBetweenEraseAndReset(requests, baud.toDouble());
    std::printf("{\"baud\": %s, \"bytes\": %lld, \"seconds\": %.3f, \"line_seconds\": %.3f, \"ratio\": %.4f, "
                "\"cpu_seconds\": %.3f, \"peak_memory_kib\": %ld}\n",
        qPrintable(baud), static_cast<long long>(imageSize), times.seconds, times.lineSeconds,
        times.seconds / times.lineSeconds, usage.cpuSeconds, usage.peakKiB);
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
        if (!measure(baud)) {
            std::fprintf(stderr, "BurnBench: the burn at %s baud failed\n", qPrintable(baud));
            return 1;
        }
    }
    return 0;
}
