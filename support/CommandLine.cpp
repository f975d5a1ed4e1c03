#include "support/CommandLine.h"

#include "support/Printable.h"

#include <QCoreApplication>

#include <algorithm>
#include <charconv>
#include <cstdio>

namespace
{

QString versionLine()
{
    return QStringLiteral("%1 %2\n").arg(QCoreApplication::applicationName(), QCoreApplication::applicationVersion());
}

ExitStatus printed(const QString& text)
{
    return printOut(text.toLocal8Bit()) ? ExitStatus::Success : ExitStatus::Failure;
}

/// The command as it is typed.
QString typed(const Command& command)
{
    return QCoreApplication::applicationName() + u' ' + QLatin1String(command.name);
}

/// @param command as it is typed
/// @param synopsis what follows it; may be empty
QString usageLine(const QString& command, const QString& synopsis)
{
    return (command + u' ' + synopsis).trimmed() + u'\n';
}

/// Breaks long lines behind a blank, so that they fit a terminal of 80 columns. Lines that begin with a blank are parts
/// of a table and stay as they are.
QString wrapped(const QString& text)
{
    constexpr qsizetype longestLine = 79;
    QStringList lines = text.split(u'\n');
    for (qsizetype i = 0; i < lines.size(); ++i) {
        const qsizetype blank = lines[i].lastIndexOf(u' ', longestLine);
        if (lines[i].size() > longestLine && blank > 0 && !lines[i].startsWith(u' ')) {
            lines.insert(i + 1, lines[i].mid(blank + 1));
            lines[i].truncate(blank);
        }
    }
    return lines.join(u'\n');
}

QString usageOf(std::span<const Command> commands)
{
    QString text;
    for (const Command& command : commands) {
        text += text.isEmpty() ? QLatin1String("usage: ") : QLatin1String("       ");
        text += usageLine(typed(command), QLatin1String(command.synopsis));
    }
    return text +
           QStringLiteral("       %1 help [COMMAND] | --help | --version\n").arg(QCoreApplication::applicationName());
}

} // namespace

std::optional<std::int64_t> parseNumber(const QString& text)
{
    QByteArray digits = text.toUtf8();
    const bool negative = digits.startsWith('-');
    digits.remove(0, negative ? 1 : 0);
    const bool hexadecimal = digits.startsWith("0x") || digits.startsWith("0X");
    digits.remove(0, hexadecimal ? 2 : 0);
    if (digits.startsWith('-')) {
        return std::nullopt;
    }
    std::int64_t magnitude = 0;
    const char* const end = digits.constData() + digits.size();
    const auto [parsed, error] = std::from_chars(digits.constData(), end, magnitude, hexadecimal ? 16 : 10);
    if (error != std::errc() || parsed != end) {
        return std::nullopt;
    }
    return negative ? -magnitude : magnitude;
}

CommandLine::CommandLine(const QString& command, const QString& synopsis, const QString& description)
    : commandName(command)
    , usage(QLatin1String("usage: ") + usageLine(command, synopsis))
{
    parser.setApplicationDescription(wrapped(description));
    parser.addOption({{QStringLiteral("h"), QStringLiteral("help")}, QStringLiteral("Print this help.")});
}

void CommandLine::addFlag(const QString& name, const QString& description)
{
    parser.addOption({name, description});
}

void CommandLine::addOption(const QString& name, const QString& valueName, const QString& description)
{
    parser.addOption({name, description, valueName});
}

void CommandLine::addVersionFlag()
{
    addFlag(QStringLiteral("version"), QStringLiteral("Print the version."));
    versionFlag = true;
}

void CommandLine::setEpilogue(const QString& text)
{
    epilogue = wrapped(text);
}

void CommandLine::parse(const QStringList& arguments)
{
    if (!parser.parse(QStringList(commandName) + arguments)) {
        refuse(printable(parser.errorText()));
    }
}

std::optional<QString> CommandLine::text(const QString& name)
{
    const QStringList values = parser.values(name);
    if (values.isEmpty()) {
        return std::nullopt;
    }
    if (values.size() > 1) {
        refuse(QStringLiteral("--%1 is given more than once").arg(name));
    }
    return values.constFirst();
}

QString CommandLine::requiredText(const QString& name)
{
    QString value = text(name).value_or(QString());
    if (value.isEmpty()) {
        refuse(QStringLiteral("--%1 is missing").arg(name));
    }
    return value;
}

std::optional<std::int64_t> CommandLine::wideNumber(const QString& name, std::int64_t smallest, std::int64_t largest)
{
    const std::optional<QString> given = text(name);
    if (!given) {
        return std::nullopt;
    }
    const std::optional<std::int64_t> value = parseNumber(*given);
    if (!value || *value < smallest || *value > largest) {
        refuse(QStringLiteral("--%1 wants a number from %2 to %3, not %4")
                   .arg(name, QString::number(smallest), QString::number(largest), quoted(*given)));
        return std::nullopt;
    }
    return value;
}

QStringList CommandLine::operands(qsizetype count, const QString& expected)
{
    QStringList given = parser.positionalArguments();
    if (given.size() != count) {
        refuse(QStringLiteral("expected %1, not %2").arg(expected, counted(given.size(), QStringLiteral("argument"))));
        given = QStringList(count, QString());
    }
    return given;
}

void CommandLine::refuse(const QString& reason)
{
    if (problem.isEmpty()) {
        problem = reason;
    }
}

std::optional<ExitStatus> CommandLine::verdict() const
{
    if (parser.isSet(QStringLiteral("help"))) {
        // The first line of Qt's text is a usage that knows neither the command nor what is required.
        return printed(usage + u'\n' + parser.helpText().section(u'\n', 1) + epilogue);
    }
    if (versionFlag && parser.isSet(QStringLiteral("version"))) {
        return printed(versionLine());
    }
    if (problem.isEmpty()) {
        return std::nullopt;
    }
    complain(commandName, problem);
    std::fputs(qPrintable(usage), stderr);
    return ExitStatus::Usage;
}

ExitStatus runCommand(std::span<const Command> commands, const QStringList& arguments)
{
    const auto find = [commands](const QString& name) {
        return std::find_if(commands.begin(), commands.end(),
            [&name](const Command& command) { return name == QLatin1String(command.name); });
    };
    const QString wanted = arguments.value(0);
    const bool help = wanted == u"help" || wanted == u"--help" || wanted == u"-h";
    if (wanted == u"--version") {
        return printed(versionLine());
    }
    if (help && arguments.size() == 1) {
        return printed(usageOf(commands));
    }
    const QString name = help ? arguments[1] : wanted;
    if (const auto command = find(name); command != commands.end()) {
        CommandLine line(typed(*command), QLatin1String(command->synopsis), QLatin1String(command->description));
        return command->run(line, help ? QStringList(QStringLiteral("--help")) : arguments.mid(1));
    }
    complain(QCoreApplication::applicationName(), name.isEmpty()
                                                      ? QStringLiteral("a command is missing")
                                                      : QStringLiteral("there is no command %1").arg(quoted(name)));
    std::fputs(qPrintable(usageOf(commands)), stderr);
    return ExitStatus::Usage;
}

bool printOut(const QByteArray& bytes)
{
    const bool written = std::fwrite(bytes.constData(), 1, static_cast<std::size_t>(bytes.size()), stdout) ==
                             static_cast<std::size_t>(bytes.size()) &&
                         std::fflush(stdout) == 0;
    if (!written) {
        std::perror(qPrintable(QCoreApplication::applicationName() + QStringLiteral(": standard output")));
    }
    return written;
}

void complain(const QString& program, const QString& text)
{
    std::fprintf(stderr, "%s: %s\n", qPrintable(program), qPrintable(text));
}
