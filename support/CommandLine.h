#pragma once

#include <QCommandLineParser>
#include <QString>
#include <QStringList>

#include <concepts>
#include <cstdint>
#include <optional>
#include <span>

/// What the console programs report to the shell.
enum class ExitStatus : int {
    Success = 0,
    Failure = 1,
    Usage = 2,
    NoDevice = 3,
    GaveUp = 4,
    /// 128 and the number of SIGINT, as shells report it.
    Stopped = 130,
};

/// The number in `text`: decimal, or hexadecimal behind 0x, with an optional minus; nothing if `text` is anything else.
std::optional<std::int64_t> parseNumber(const QString& text);

/// Options and arguments of one command of a console program.
///
/// A command adds its options, parses, takes its values, and then asks `verdict` whether it may start. Whatever is
/// wrong is kept until then, and the first thing wrong is the one reported. Long lines of the help text are broken to
/// fit 80 columns.
class CommandLine
{
public:
    /// @param command as it is typed, for instance "tavimora-cli burn"
    /// @param synopsis what follows it, for instance "--port NAME FILE"; may be empty
    /// @param description the paragraphs of the help text above the list of options
    CommandLine(const QString& command, const QString& synopsis, const QString& description);

    void addFlag(const QString& name, const QString& description);
    void addOption(const QString& name, const QString& valueName, const QString& description);

    /// Adds --version, which prints the version of the application.
    void addVersionFlag();

    /// Text below the list of options in the help text.
    void setEpilogue(const QString& text);

    /// @param arguments what follows the command
    void parse(const QStringList& arguments);

    bool isSet(const QString& name) const { return parser.isSet(name); }

    /// All values of an option that may be given more than once.
    QStringList texts(const QString& name) const { return parser.values(name); }

    /// The value of an option that may be given once; nothing when it is not given.
    std::optional<QString> text(const QString& name);

    /// The value of an option that must be given, once and not empty.
    QString requiredText(const QString& name);

    /// The value of a numeric option in the range from `smallest` to `largest`, in decimal, or in hexadecimal behind
    /// 0x; nothing when it is not given, or wrong.
    template <std::integral Number>
    std::optional<Number> number(const QString& name, Number smallest, Number largest)
    {
        static_assert(sizeof(Number) < sizeof(std::int64_t) || std::signed_integral<Number>);
        const std::optional<std::int64_t> value = wideNumber(name, smallest, largest);
        return value ? std::optional(static_cast<Number>(*value)) : std::nullopt;
    }

    /// The arguments that belong to no option.
    /// @param count how many there must be
    /// @param expected completes the error message "expected ...", for instance "one firmware file"
    /// @return `count` texts, empty ones when another number was given
    QStringList operands(qsizetype count, const QString& expected);

    /// Notes that something is wrong with the command line.
    void refuse(const QString& reason);

    /// Prints the help text or the version if that was asked for, or what is wrong.
    /// @return the exit status to end with; nothing when the command may start.
    std::optional<ExitStatus> verdict() const;

private:
    std::optional<std::int64_t> wideNumber(const QString& name, std::int64_t smallest, std::int64_t largest);

    QCommandLineParser parser;
    QString commandName;
    QString usage;
    QString epilogue;
    QString problem;
    /// --version is that of the program, and no option of the command.
    bool versionFlag = false;
};

/// A command of a program that has several.
struct Command {
    const char* name;
    /// What follows the name in the usage text; may be empty.
    const char* synopsis;
    /// The paragraphs of the help text above the list of options.
    const char* description;
    /// Adds the options to `line`, parses `arguments`, which follow the name, and does the work.
    ExitStatus (*run)(CommandLine& line, const QStringList& arguments);
};

/// Runs the command that `arguments` begin with. Serves `help`, `help COMMAND`, --help and --version, and reports a
/// command that is missing or unknown. The application has its name and version.
ExitStatus runCommand(std::span<const Command> commands, const QStringList& arguments);

/// Writes bytes to standard output.
/// @return whether all of them could be written; if not, standard error says why.
bool printOut(const QByteArray& bytes);

/// Writes "PROGRAM: TEXT" as one line to standard error.
void complain(const QString& program, const QString& text);
