#include "tools/devicesim/Options.h"

#include <QCommandLineParser>

namespace devicesim
{

namespace
{

constexpr qulonglong largestTimeMs = 3'600'000;
constexpr qulonglong smallestBaudRate = 50;
constexpr qulonglong largestBaudRate = 100'000'000;

struct OptionEntry {
    const char* name;
    const char* value;
    const char* description;
};

constexpr OptionEntry optionTable[] = {
    {"link", "PATH", "Put the link to the port at PATH, not where the list of ports finds it."},
    {"baud", "N", "Take the time that N bits per second take; without it, as fast as it goes."},
    {"device-id", "N", "Report N as the device's id; 0x0300 if left out."},
    {"bootloader-version", "A.B.C", "Report this version of the bootloader; 1.1.2 if left out."},
    {"firmware-version", "A.B.C", "Report this version of the firmware; 2.2.3 if left out."},
    {"echo", nullptr, "Send every received byte back at once."},
    {"memory", "FILE", "Begin with the memory in FILE if it exists, and write it there at each reset and at the end."},
    {"erase-time", "MS", "Take so long to erase."},
    {"write-time", "MS", "Take so long to write a block."},
    {"late-time", "MS", "How late a late reply is; 500 if left out."},
    {"fault", "NAME[:VALUE]", "Let something go wrong, see below. May be given more than once."},
    {"seed", "N", "Begin the dice of the faults here; 1 if left out."},
    {"once", nullptr, "End after the first reset."},
    {"report", "FILE", "Write to FILE at the end, as JSON, what the device has seen."},
    {"verbose", nullptr, "Print a line per request to standard error."},
};

/// Reads options one by one and keeps the first thing that is wrong.
class OptionReader
{
public:
    explicit OptionReader(const QCommandLineParser& commandLine)
        : parser(commandLine)
    {
    }

    qulonglong number(const QString& name, qulonglong smallest, qulonglong largest, qulonglong usual)
    {
        if (!parser.isSet(name)) {
            return usual;
        }
        bool ok = false;
        const qulonglong value = parser.value(name).toULongLong(&ok, 0);
        if (!ok || value < smallest || value > largest) {
            fail(name, QStringLiteral("a number from %1 to %2").arg(smallest).arg(largest));
            return usual;
        }
        return value;
    }

    std::chrono::milliseconds time(const QString& name, std::chrono::milliseconds usual)
    {
        return std::chrono::milliseconds(number(name, 0, largestTimeMs, static_cast<qulonglong>(usual.count())));
    }

    /// @return the version as its word on the wire.
    std::uint16_t version(const QString& name, std::uint16_t usual)
    {
        if (!parser.isSet(name)) {
            return usual;
        }
        const QStringList parts = parser.value(name).split(u'.');
        bool ok = parts.size() == 3;
        uint word = 0;
        for (qsizetype index = 0; ok && index < parts.size(); ++index) {
            const uint limit = index == 0 ? 0xF : 0x3F;
            const uint part = parts[index].toUInt(&ok);
            ok = ok && part <= limit;
            word = word * (limit + 1) + part;
        }
        if (!ok) {
            fail(name, QStringLiteral("A.B.C with A up to 15, B and C up to 63"));
        }
        return static_cast<std::uint16_t>(word);
    }

    void faults(FaultPlan& plan)
    {
        for (const QString& text : parser.values(QStringLiteral("fault"))) {
            note(plan.add(text));
        }
    }

    void note(const QString& what)
    {
        if (problem.isEmpty()) {
            problem = what;
        }
    }

    QString problem;

private:
    void fail(const QString& name, const QString& expected)
    {
        note(QStringLiteral("wrong value '%1' for --%2, expected %3").arg(parser.value(name), name, expected));
    }

    const QCommandLineParser& parser;
};

} // namespace

QString readOptions(const QStringList& arguments, Options& options)
{
    QCommandLineParser parser;
    parser.setApplicationDescription(
        QStringLiteral("A device with a bootloader on a pseudo-terminal. Numbers may be hexadecimal (0x)."));
    const QCommandLineOption help({QStringLiteral("h"), QStringLiteral("help")}, QStringLiteral("Print this help."));
    parser.addOption(help);
    for (const OptionEntry& entry : optionTable) {
        parser.addOption({QString::fromLatin1(entry.name), QString::fromLatin1(entry.description),
            QString::fromLatin1(entry.value)});
    }
    if (!parser.parse(arguments)) {
        return parser.errorText();
    }
    if (parser.isSet(help)) {
        options.help = parser.helpText() + u'\n' + FaultPlan::help();
        return {};
    }
    OptionReader reader(parser);
    if (!parser.positionalArguments().isEmpty()) {
        reader.note(QStringLiteral("unexpected argument '%1'").arg(parser.positionalArguments().constFirst()));
    }
    DeviceConfig& device = options.device;
    device.identity.deviceId =
        static_cast<std::uint16_t>(reader.number(QStringLiteral("device-id"), 0, UINT16_MAX, device.identity.deviceId));
    device.identity.bootloaderVersion =
        reader.version(QStringLiteral("bootloader-version"), device.identity.bootloaderVersion);
    device.identity.firmwareVersion =
        reader.version(QStringLiteral("firmware-version"), device.identity.firmwareVersion);
    device.baudRate =
        static_cast<std::uint32_t>(reader.number(QStringLiteral("baud"), smallestBaudRate, largestBaudRate, 0));
    device.echo = parser.isSet(QStringLiteral("echo"));
    device.eraseTime = reader.time(QStringLiteral("erase-time"), device.eraseTime);
    device.writeTime = reader.time(QStringLiteral("write-time"), device.writeTime);
    device.lateTime = reader.time(QStringLiteral("late-time"), device.lateTime);
    device.seed = reader.number(QStringLiteral("seed"), 0, UINT64_MAX, device.seed);
    device.once = parser.isSet(QStringLiteral("once"));
    reader.faults(device.faults);
    options.linkPath = parser.value(QStringLiteral("link"));
    options.memoryFile = parser.value(QStringLiteral("memory"));
    options.reportFile = parser.value(QStringLiteral("report"));
    options.verbose = parser.isSet(QStringLiteral("verbose"));
    return reader.problem;
}

} // namespace devicesim
