#include "cli/BurnCommand.h"

#include "cli/BurnConsole.h"

#include <QCommandLineParser>

#include <cstdio>
#include <limits>

namespace
{

constexpr const char* usage = "usage: tavimora-cli burn --port NAME [--timeout SECONDS] FILE\n";

/// SECONDS that a timer of 32 bits holds as milliseconds.
constexpr uint longestTimeout = std::numeric_limits<int>::max() / 1000;

ExitStatus usageError(const QString& reason)
{
    std::fprintf(stderr, "tavimora-cli burn: %s\n", qPrintable(reason));
    std::fputs(usage, stderr);
    return ExitStatus::Usage;
}

std::optional<std::chrono::seconds> parseSeconds(const QString& text)
{
    bool valid = false;
    const uint seconds = text.toUInt(&valid, 10);
    if (!valid || seconds == 0 || seconds > longestTimeout) {
        return std::nullopt;
    }
    return std::chrono::seconds(seconds);
}

} // namespace

ExitStatus burnCommand(const QStringList& arguments)
{
    const QCommandLineOption portOption("port", "The serial port of the device.", "NAME");
    const QCommandLineOption timeoutOption("timeout", "Give up when no device has answered after SECONDS.", "SECONDS");
    const QCommandLineOption helpOption({"h", "help"}, "Show this text.");
    QCommandLineParser parser;
    parser.setApplicationDescription(
        "Waits for the bootloader of the device at a serial port, burns FILE, reads it back and compares it.\n\n"
        "Exit status: 0 burned and verified, 1 the burn failed, 2 wrong usage, 3 no device within the time-out,\n"
        "130 stopped by a signal.");
    parser.addOptions({portOption, timeoutOption, helpOption});
    parser.addPositionalArgument("FILE", "The firmware file.");

    if (!parser.parse(QStringList("tavimora-cli burn") + arguments)) {
        return usageError(parser.errorText());
    }
    if (parser.isSet(helpOption)) {
        std::fputs(usage, stdout);
        // Its first line would be a usage that knows neither the command nor what is required.
        std::fputs(qPrintable(parser.helpText().section(u'\n', 1)), stdout);
        return ExitStatus::Success;
    }
    if (parser.value(portOption).isEmpty()) {
        return usageError("no port is given (\"tavimora-cli ports\" lists them)");
    }
    if (parser.positionalArguments().size() != 1) {
        return usageError("exactly one firmware file is wanted");
    }
    std::optional<std::chrono::seconds> timeout;
    if (parser.isSet(timeoutOption)) {
        timeout = parseSeconds(parser.value(timeoutOption));
        if (!timeout) {
            return usageError(QString("the time-out is \"%1\", not a whole number of seconds from 1 to %2")
                                  .arg(parser.value(timeoutOption))
                                  .arg(longestTimeout));
        }
    }
    return BurnConsole(timeout).run(parser.value(portOption), parser.positionalArguments().constFirst());
}
