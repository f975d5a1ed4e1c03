#include "tools/fwpack/ShowCommand.h"

#include "firmware/BurnLimits.h"
#include "firmware/FirmwareFile.h"
#include "tools/fwpack/BurnPlan.h"
#include "tools/fwpack/FaultFinder.h"
#include "tools/fwpack/HeaderReport.h"
#include "tools/fwpack/LogCapture.h"
#include "tools/fwpack/Printable.h"

#include <QFile>
#include <QFileInfo>
#include <QJsonDocument>
#include <QJsonObject>
#include <QTextStream>

#include <algorithm>
#include <optional>
#include <utility>

namespace fwpack
{

namespace
{

/// The content of a regular file of a size that a firmware file may have; nothing for any other or on failure.
std::optional<QByteArray> readContent(const QString& path)
{
    constexpr qint64 maximumSize = qint64{128} * 1024 * 1024;
    QFile file(path);
    if (!QFileInfo(path).isFile() || !file.open(QIODevice::ReadOnly) || file.size() > maximumSize) {
        return std::nullopt;
    }
    QByteArray content = file.readAll();
    return file.error() == QFile::NoError ? std::optional(std::move(content)) : std::nullopt;
}

/// "2 x 512, 6, 512" for the lengths 512, 512, 6, 512.
QString summary(const std::vector<qsizetype>& lengths)
{
    QStringList runs;
    for (auto run = lengths.begin(); run != lengths.end();) {
        const auto end = std::find_if(run, lengths.end(), [run](qsizetype length) { return length != *run; });
        const QString times = end - run > 1 ? QString("%1 x ").arg(end - run) : QString();
        runs << times + QString::number(*run);
        run = end;
    }
    return runs.join(", ");
}

void printPlan(const BurnPlan& plan, QTextStream& out)
{
    for (const BurnRange& range : plan.ranges) {
        const qsizetype blocks = qsizetype(range.blocks.size());
        out << "range:    " << hexNumber(range.first) << " to " << hexNumber(range.last) << ", "
            << counted(range.bytes(), "byte") << " in " << counted(blocks, "block") << ": " << summary(range.blocks)
            << '\n';
    }
    out << "total:    " << counted(plan.bytes, "byte") << " in " << counted(plan.blocks, "block") << ", "
        << counted(qsizetype(plan.ranges.size()), "range") << '\n';
}

QStringList suspicions(const BurnPlan& plan, const FirmwareFile& firmware)
{
    QStringList warnings;
    if (!firmware.isPadded) {
        warnings << "warning: no padding marker 0x80 behind the text: the file may be cut short";
    }
    if (plan.ranges.empty()) {
        warnings << "warning: holds no data: a burn would erase the device and write nothing";
    }
    if (const auto address = firstAddressOutOfReach(firmware.image)) {
        warnings << QString("warning: data at %1 lies above %2: a burn refuses the file")
                        .arg(hexNumber(*address), hexNumber(lastBurnAddress));
    }
    return warnings;
}

} // namespace

bool showFirmware(const ShowRequest& request, QTextStream& out, QTextStream& err)
{
    const auto complain = [&](const QStringList& lines) {
        out.flush();
        for (const QString& line : lines) {
            err << "fwpack: " << escaped(request.file) << ": " << line << '\n';
        }
    };

    const LogCapture log;
    FirmwareFile firmware;
    const bool good = firmware.load(request.file);
    const std::optional<QByteArray> content = readContent(request.file);
    const QJsonObject root = QJsonDocument::fromJson(content.value_or(QByteArray())).object();
    if (root.contains("header")) {
        out << "file:     " << escaped(request.file) << ", " << counted(content->size(), "byte") << '\n'
            << describeHeader(root.value("header")).join('\n') << '\n';
    }
    if (!good) {
        const QStringList faults = content ? findFaults(*content) : QStringList();
        complain(QStringList("does not load: " + firmware.errorText) + faults);
        return false;
    }
    const BurnPlan plan(firmware.image);
    printPlan(plan, out);
    complain(summary(firmware.hexFaults) + suspicions(plan, firmware));
    return true;
}

} // namespace fwpack
