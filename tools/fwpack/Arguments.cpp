#include "tools/fwpack/Arguments.h"

#include "tools/fwpack/Printable.h"

#include <QCommandLineParser>

#include <charconv>
#include <limits>
#include <optional>

namespace fwpack
{

namespace
{

/// Decimal, or hexadecimal behind 0x, with an optional minus; nothing else may stand in the text.
std::optional<std::int64_t> parseNumber(const QString& text)
{
    QByteArray digits = text.toUtf8();
    const bool negative = digits.startsWith('-');
    digits.remove(0, negative ? 1 : 0);
    const bool hexadecimal = digits.startsWith("0x") || digits.startsWith("0X");
    digits.remove(0, hexadecimal ? 2 : 0);

    std::uint32_t magnitude = 0;
    const char* const end = digits.constData() + digits.size();
    const auto [parsed, error] = std::from_chars(digits.constData(), end, magnitude, hexadecimal ? 16 : 10);
    if (error != std::errc() || parsed != end) {
        return std::nullopt;
    }
    return negative ? -std::int64_t(magnitude) : std::int64_t(magnitude);
}

/// Reads the options of one command line; the first thing wrong is kept in `fault`.
class OptionReader
{
public:
    explicit OptionReader(const QCommandLineParser& commandLine)
        : parser(commandLine)
    {
    }

    QString text(const QString& name)
    {
        QString value = single(name);
        if (escaped(value) != value) {
            refuse(QString("--%1 may hold no control characters").arg(name));
        }
        return value;
    }

    template <typename Number>
    Number number(const QString& name, Number smallest, Number largest)
    {
        const QString value = single(name);
        const std::optional<std::int64_t> parsed = parseNumber(value);
        if (!parsed || *parsed < smallest || *parsed > largest) {
            refuse(QString("--%1 wants a number from %2 to %3, not \"%4\"")
                       .arg(name)
                       .arg(smallest)
                       .arg(largest)
                       .arg(escaped(value)));
            return smallest;
        }
        return static_cast<Number>(*parsed);
    }

    void refuse(const QString& reason)
    {
        if (fault.isEmpty()) {
            fault = reason;
        }
    }

    QString fault;

private:
    QString single(const QString& name)
    {
        const QStringList values = parser.values(name);
        if (values.isEmpty()) {
            refuse(QString("--%1 is missing").arg(name));
            return {};
        }
        if (values.size() > 1) {
            refuse(QString("--%1 is given more than once").arg(name));
        }
        return values.first();
    }

    const QCommandLineParser& parser;
};

Request packRequest(const QCommandLineParser& parser, const QStringList& files)
{
    constexpr auto int32Max = std::numeric_limits<std::int32_t>::max();
    constexpr auto int32Min = std::numeric_limits<std::int32_t>::min();

    OptionReader options(parser);
    PackRequest request;
    request.header.device = options.number<std::uint16_t>("device", 0, 0xFFFF);
    request.header.version = options.text("version");
    request.header.target = options.text("target");
    request.header.baudrate = options.number<std::int32_t>("baudrate", 1, int32Max);
    request.header.link = options.number<std::int32_t>("link", int32Min, int32Max);
    if (files.size() != 2) {
        options.refuse("pack wants one INPUT.hex and one OUTPUT");
    }
    if (!options.fault.isEmpty()) {
        return UsageError{options.fault};
    }
    request.input = files[0];
    request.output = files[1];
    return request;
}

Request showRequest(const QCommandLineParser& parser, const QStringList& files)
{
    for (const QString& name : parser.optionNames()) {
        return UsageError{QString("show takes no option --%1").arg(name)};
    }
    if (files.size() != 1) {
        return UsageError{"show wants one FILE"};
    }
    return ShowRequest{files[0]};
}

} // namespace

Request parseArguments(const QStringList& arguments)
{
    const PackageHeader defaults;
    QCommandLineParser parser;
    parser.addOptions({
        {{"h", "help"}, {}},
        {"device", {}, "number"},
        {"version", {}, "text"},
        {"target", {}, "text"},
        {"baudrate", {}, "number", QString::number(defaults.baudrate)},
        {"link", {}, "number", QString::number(defaults.link)},
    });
    if (!parser.parse(arguments)) {
        return UsageError{escaped(parser.errorText())};
    }
    if (parser.isSet("help")) {
        return HelpRequest{};
    }
    QStringList words = parser.positionalArguments();
    if (words.isEmpty()) {
        return UsageError{"a command is missing"};
    }
    const QString command = words.takeFirst();
    if (command == "pack") {
        return packRequest(parser, words);
    }
    if (command == "show") {
        return showRequest(parser, words);
    }
    return UsageError{QString("there is no command \"%1\"").arg(escaped(command))};
}

QString usageText()
{
    return R"(Usage:
  fwpack pack --device N --version TEXT --target TEXT [--baudrate N] [--link N] INPUT.hex OUTPUT
      Makes the firmware file OUTPUT from the Intel HEX file INPUT.hex.
  fwpack show FILE
      Prints what the firmware file FILE holds, or what is wrong with it; never the image itself.

Options of pack:
  --device N      identification of the device that the firmware is for, 0 to 0xFFFF
  --version TEXT  version of the firmware
  --target TEXT   name of the device, as the user knows it
  --baudrate N    speed of the serial line in bits per second (57600)
  --link N        kind of the link: 1 for a line that echoes what is sent, else 0 (0)

  -h, --help      prints this text

Numbers are decimal, or hexadecimal behind 0x.
Exit status: 0 for success, 1 for a failure or a bad file, 2 for wrong usage.
)";
}

} // namespace fwpack
