#include "cli/RunOptions.h"

#include "serial/PortEnumerator.h"

namespace
{

/// Seconds that a timer of 32 bits holds as milliseconds.
constexpr int longestSeconds = std::numeric_limits<int>::max() / 1000;
constexpr int mostErases = 1'000'000;
constexpr int defaultStallSeconds = 60;
constexpr int defaultMaxErases = 3;

constexpr QLatin1String port("port");
constexpr QLatin1String jsonName("json");
constexpr QLatin1String timeout("timeout");
constexpr QLatin1String stall("stall");
constexpr QLatin1String maxErases("max-erases");

} // namespace

void options::addPort(CommandLine& line, bool several)
{
    line.addOption(port, QStringLiteral("NAME"),
        QStringLiteral("The serial port of the device: a name that \"tavimora-cli ports\" lists, a path, or "
                       "usb:VID:PID[:SERIAL] for an adapter.") +
            (several ? QStringLiteral(" May be given again, for several devices at once.") : QString()));
}

std::vector<PortChoice> options::ports(CommandLine& line, bool several)
{
    const QStringList given = line.texts(port);
    if (given.isEmpty()) {
        line.refuse(QStringLiteral("--port is missing"));
        return {};
    }
    if (given.size() > 1 && !several) {
        line.refuse(QStringLiteral("--port is given more than once"));
    }
    PortChoices choices = choosePorts(given, availablePorts());
    if (!choices.problem.isEmpty()) {
        line.refuse(choices.problem);
    }
    return choices.ports;
}

void options::addJson(CommandLine& line)
{
    line.addFlag(jsonName, QStringLiteral("Write JSON, one object a line, to standard output, and nothing else."));
}

bool options::json(const CommandLine& line)
{
    return line.isSet(jsonName);
}

void options::addLimits(CommandLine& line)
{
    addTimeLimits(line);
    line.addOption(maxErases, QStringLiteral("N"),
        QStringLiteral("Give up when the memory is not blank after N erases; 0 for never (default %1).")
            .arg(defaultMaxErases));
}

RunLimits options::limits(CommandLine& line)
{
    RunLimits limits = timeLimits(line);
    const int erases = line.number<int>(maxErases, 0, mostErases).value_or(defaultMaxErases);
    if (erases > 0) {
        limits.maxErases = erases;
    }
    return limits;
}

void options::addTimeLimits(CommandLine& line)
{
    addDeviceTimeout(line);
    line.addOption(stall, QStringLiteral("SECONDS"),
        QStringLiteral("Give up after SECONDS without a confirmed step; 0 for never (default %1).")
            .arg(defaultStallSeconds));
}

RunLimits options::timeLimits(CommandLine& line)
{
    RunLimits limits = deviceTimeout(line);
    const int stallSeconds = line.number<int>(stall, 0, longestSeconds).value_or(defaultStallSeconds);
    if (stallSeconds > 0) {
        limits.stall = std::chrono::seconds(stallSeconds);
    }
    return limits;
}

void options::addDeviceTimeout(CommandLine& line)
{
    line.addOption(timeout, QStringLiteral("SECONDS"),
        QStringLiteral("Give up when no device has answered after SECONDS (default: wait for ever)."));
}

RunLimits options::deviceTimeout(CommandLine& line)
{
    RunLimits limits;
    if (const std::optional<int> seconds = line.number<int>(timeout, 1, longestSeconds)) {
        limits.device = std::chrono::seconds(*seconds);
    }
    return limits;
}
