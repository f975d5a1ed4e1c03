#include "cli/Commands.h"
#include "cli/Json.h"
#include "cli/RunOptions.h"
#include "firmware/BurnLimits.h"
#include "firmware/FirmwareFile.h"
#include "support/Printable.h"

#include <QFileInfo>
#include <QJsonArray>
#include <QJsonObject>
#include <QList>
#include <QStringList>

#include <algorithm>

namespace
{

/// Addresses that a burn writes without a gap.
struct Range {
    std::uint32_t first = 0;
    /// Inclusive.
    std::uint32_t last = 0;
    /// The lengths of the blocks in which it is written.
    QList<qsizetype> blocks;

    qsizetype bytes() const { return qsizetype{last - first} + 1; }
};

/// What there is to say of a firmware file.
struct Report {
    QString path;
    FirmwareFile firmware;
    QList<Range> ranges;
    qsizetype bytes = 0;
    qsizetype blocks = 0;
    /// Seconds that the bytes take on the line to the device and back.
    double seconds = 0;
    QStringList warnings;
    /// Why a burn does not take the file; empty if it does.
    QStringList errors;
};

void takeBlocks(Report& report)
{
    QList<Range>& ranges = report.ranges;
    for (BlockScanner& block = report.firmware.scanner; nextBurnBlock(block);) {
        const qsizetype length = block.data.size();
        if (ranges.isEmpty() || ranges.last().last + 1 != block.address) {
            ranges.append({block.address, block.address, {}});
        }
        ranges.last().last = block.address + static_cast<std::uint32_t>(length - 1);
        ranges.last().blocks.append(length);
        report.bytes += length;
        ++report.blocks;
    }
    if (report.firmware.baudrate > 0) {
        constexpr double bitsPerByte = 10;
        report.seconds = 2 * bitsPerByte * static_cast<double>(report.bytes) / report.firmware.baudrate;
    }
}

/// @param report names the file; everything else of it is filled in.
void inspect(Report& report)
{
    FirmwareFile& firmware = report.firmware;
    if (!firmware.read(report.path)) {
        report.errors << "does not load: " + firmware.errorText << firmware.faults;
        return;
    }
    takeBlocks(report);
    report.warnings = firmware.faults;
    if (report.blocks == 0) {
        report.warnings << "holds no data: a burn would erase the device and write nothing";
    }
    if (const auto address = firstAddressOutOfReach(firmware.image)) {
        report.errors << QString("a burn refuses the file: data at %1 lies above %2")
                             .arg(hexNumber(*address), hexNumber(lastBurnAddress));
    }
    if (firmware.baudrate <= 0) {
        report.errors << QString("a burn refuses the file: no line has a speed of %1").arg(firmware.baudrate);
    }
}

QString field(const QString& name, const QString& value)
{
    return (name + u':').leftJustified(10) + value + u'\n';
}

/// "2 x 512, 6, 512" for the lengths 512, 512, 6, 512.
QString runs(const QList<qsizetype>& lengths)
{
    QStringList texts;
    for (auto run = lengths.begin(); run != lengths.end();) {
        const auto end = std::find_if(run, lengths.end(), [run](qsizetype length) { return length != *run; });
        const QString times = end - run > 1 ? QString("%1 x ").arg(end - run) : QString();
        texts << times + QString::number(*run);
        run = end;
    }
    return texts.join(", ");
}

QString headerText(const FirmwareFile& firmware)
{
    const auto noted = [&firmware](const QString& name, const QString& value, const QString& ownNote = {}) {
        const QString note = firmware.headerNotes.value(name, ownNote);
        return field(name, note.isEmpty() ? value : QString("%1 (%2)").arg(value, note));
    };
    return noted("device", hexNumber(firmware.device)) + noted("version", quoted(firmware.version)) +
           noted("target", quoted(firmware.target)) + noted("baudrate", QString::number(firmware.baudrate)) +
           noted("link", QString::number(firmware.link),
               firmware.link == FirmwareFile::echoLink ? "the line echoes what is sent" : "");
}

QByteArray textOf(const Report& report)
{
    QString text;
    if (report.firmware.hasHeader) {
        text += field("file", printable(report.path) + ", " + counted(QFileInfo(report.path).size(), "byte"));
        text += headerText(report.firmware);
    }
    for (const Range& range : report.ranges) {
        text += field("range", QString("%1 to %2, %3 in %4: %5")
                                   .arg(hexNumber(range.first), hexNumber(range.last), counted(range.bytes(), "byte"),
                                       counted(range.blocks.size(), "block"), runs(range.blocks)));
    }
    if (report.firmware.errorText.isEmpty()) {
        text += field("total", QString("%1 in %2, %3")
                                   .arg(counted(report.bytes, "byte"), counted(report.blocks, "block"),
                                       counted(report.ranges.size(), "range")));
    }
    if (report.seconds > 0) {
        text +=
            field("time", QString("about %1 s on the line, to write and to read back").arg(report.seconds, 0, 'f', 1));
    }
    return text.toLocal8Bit();
}

QByteArray jsonOf(const Report& report)
{
    QJsonArray ranges;
    for (const Range& range : report.ranges) {
        QJsonArray blocks;
        for (const qsizetype length : range.blocks) {
            blocks.append(length);
        }
        ranges.append(QJsonObject{{"first", qint64{range.first}}, {"last", qint64{range.last}}, {"blocks", blocks}});
    }
    const FirmwareFile& firmware = report.firmware;
    QJsonObject object = {{"file", report.path}, {"ranges", ranges}, {"bytes", report.bytes}, {"blocks", report.blocks},
        {"seconds", report.seconds}, {"warnings", QJsonArray::fromStringList(report.warnings)},
        {"errors", QJsonArray::fromStringList(report.errors)}};
    if (firmware.hasHeader) {
        QJsonObject notes;
        for (auto note = firmware.headerNotes.begin(); note != firmware.headerNotes.end(); ++note) {
            notes.insert(note.key(), note.value());
        }
        object.insert("notes", notes);
        object.insert("device", firmware.device);
        object.insert("version", firmware.version);
        object.insert("target", firmware.target);
        object.insert("baudrate", firmware.baudrate);
        object.insert("link", firmware.link);
    }
    return jsonLine(object) + '\n';
}

ExitStatus show(CommandLine& line, const QStringList& arguments)
{
    options::addJson(line);
    line.setEpilogue("\nExit status: 0 for a file that can be burned, 1 for any other, 2 wrong usage.\n");
    line.parse(arguments);
    Report report;
    report.path = line.operands(1, "one firmware file").constFirst();
    if (const std::optional<ExitStatus> status = line.verdict()) {
        return *status;
    }
    inspect(report);
    const bool printed = printOut(options::json(line) ? jsonOf(report) : textOf(report));
    const auto complainOf = [&report](const QString& text) {
        complain("tavimora-cli show", printable(report.path) + ": " + text);
    };
    for (const QString& warning : std::as_const(report.warnings)) {
        complainOf("warning: " + warning);
    }
    for (const QString& error : std::as_const(report.errors)) {
        complainOf(error);
    }
    return printed && report.errors.isEmpty() ? ExitStatus::Success : ExitStatus::Failure;
}

} // namespace

const Command showCommand = {"show", "[--json] FILE",
    "Prints what the firmware file FILE holds: its header, the ranges and blocks that "
    "a burn writes, and the time that they take on the line; never the image itself. "
    "What is wrong with the file goes to standard error.",
    show};
