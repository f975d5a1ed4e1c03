#include "cli/Commands.h"
#include "firmware/BurnLimits.h"
#include "firmware/FirmwareFile.h"
#include "support/Printable.h"

#include <QFileInfo>
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

QList<Range> rangesOf(const MemoryImage& image)
{
    QList<Range> ranges;
    for (BlockScanner scanner(image); nextBurnBlock(scanner);) {
        const qsizetype length = scanner.data.size();
        if (ranges.isEmpty() || ranges.last().last + 1 != scanner.address) {
            ranges.append({scanner.address, scanner.address, {}});
        }
        ranges.last().last = scanner.address + static_cast<std::uint32_t>(length - 1);
        ranges.last().blocks.append(length);
    }
    return ranges;
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
           noted("link", QString::number(firmware.link), firmware.link == 1 ? "the line echoes what is sent" : "");
}

QString imageText(const QList<Range>& ranges, std::int32_t baudrate)
{
    QString text;
    qsizetype bytes = 0;
    qsizetype blocks = 0;
    for (const Range& range : ranges) {
        text += field("range", QString("%1 to %2, %3 in %4: %5")
                                   .arg(hexNumber(range.first), hexNumber(range.last), counted(range.bytes(), "byte"),
                                       counted(range.blocks.size(), "block"), runs(range.blocks)));
        bytes += range.bytes();
        blocks += range.blocks.size();
    }
    text += field("total",
        QString("%1 in %2, %3").arg(counted(bytes, "byte"), counted(blocks, "block"), counted(ranges.size(), "range")));
    if (bytes > 0 && baudrate > 0) {
        // Every byte goes to the device and comes back, in ten bits each time.
        const double seconds = 2.0 * 10 * static_cast<double>(bytes) / baudrate;
        text += field("time", QString("about %1 s on the line, to write and to read back").arg(seconds, 0, 'f', 1));
    }
    return text;
}

/// Why a burn refuses a file that was read well.
QStringList refusals(const FirmwareFile& firmware)
{
    QStringList texts;
    if (const auto address = firstAddressOutOfReach(firmware.image)) {
        texts << QString("a burn refuses the file: data at %1 lies above %2")
                     .arg(hexNumber(*address), hexNumber(lastBurnAddress));
    }
    if (firmware.baudrate <= 0) {
        texts << QString("a burn refuses the file: no line has a speed of %1").arg(firmware.baudrate);
    }
    return texts;
}

/// What looks damaged in a file that was read well, or cannot be meant.
QStringList warnings(const FirmwareFile& firmware, bool isEmpty)
{
    QStringList texts;
    for (const QString& fault : firmware.faults) {
        texts << "warning: " + fault;
    }
    if (isEmpty) {
        texts << "warning: holds no data: a burn would erase the device and write nothing";
    }
    return texts;
}

ExitStatus show(CommandLine& line, const QStringList& arguments)
{
    line.setEpilogue("\nExit status: 0 for a file that can be burned, 1 for any other, 2 wrong usage.\n");
    line.parse(arguments);
    const QString path = line.operands(1, "one firmware file").constFirst();
    if (const std::optional<ExitStatus> status = line.verdict()) {
        return *status;
    }

    FirmwareFile firmware;
    const bool loaded = firmware.read(path);
    QString text;
    if (firmware.hasHeader) {
        text += field("file", printable(path) + ", " + counted(QFileInfo(path).size(), "byte")) + headerText(firmware);
    }
    QStringList reasons = QStringList("does not load: " + firmware.errorText) + firmware.faults;
    QStringList doubts;
    if (loaded) {
        const QList<Range> ranges = rangesOf(firmware.image);
        text += imageText(ranges, firmware.baudrate);
        doubts = warnings(firmware, ranges.isEmpty());
        reasons = refusals(firmware);
    }
    const bool printed = printOut(text.toLocal8Bit());
    for (const QString& complaint : doubts + reasons) {
        complain("tavimora-cli show", printable(path) + ": " + complaint);
    }
    return printed && reasons.isEmpty() ? ExitStatus::Success : ExitStatus::Failure;
}

} // namespace

const Command showCommand = {"show", "FILE",
    "Prints what the firmware file FILE holds: its header, the ranges and blocks that\n"
    "a burn writes, and the time that they take on the line; never the image itself.\n"
    "What is wrong with the file goes to standard error.",
    show};
