#include "cli/Commands.h"
#include "cli/Json.h"
#include "cli/RunOptions.h"
#include "cli/Terminal.h"
#include "serial/PortEnumerator.h"
#include "support/Printable.h"

#include <QString>
#include <QStringList>

#include <algorithm>
#include <array>
#include <vector>

namespace
{

using Row = std::array<QString, 5>;

QString text(const std::wstring& wide)
{
    return printable(QString::fromStdWString(wide));
}

QString idsOf(const PortInfo& port)
{
    if (port.vendorId == 0 && port.productId == 0) {
        return QString();
    }
    return QStringLiteral("%1:%2")
        .arg(port.vendorId, 4, 16, QLatin1Char('0'))
        .arg(port.productId, 4, 16, QLatin1Char('0'));
}

std::vector<Row> portRows()
{
    std::vector<Row> rows;
    for (const PortInfo& port : availablePorts()) {
        rows.push_back({text(port.portName), text(port.description), text(port.manufacturer), text(port.serialNumber),
            idsOf(port)});
    }
    return rows;
}

/// The rows below a header, with blanks between the fields up to the width of each column.
QString table(std::vector<Row> rows)
{
    constexpr qsizetype gap = 2;
    rows.insert(rows.begin(), {"Port", "Description", "Manufacturer", "Serial number", "Ids"});
    std::array<qsizetype, std::tuple_size_v<Row>> widths = {};
    for (const Row& row : rows) {
        for (std::size_t column = 0; column < row.size(); ++column) {
            widths[column] = std::max(widths[column], row[column].size());
        }
    }
    QString lines;
    for (const Row& row : rows) {
        QString line;
        for (std::size_t column = 0; column < row.size(); ++column) {
            line += row[column].leftJustified(widths[column] + gap);
        }
        lines += line.trimmed() + u'\n';
    }
    return lines;
}

QString tabSeparated(const std::vector<Row>& rows)
{
    QString lines;
    for (const Row& row : rows) {
        lines += QStringList(row.begin(), row.end()).join(u'\t') + u'\n';
    }
    return lines;
}

ExitStatus printJson()
{
    QByteArray text;
    for (const PortInfo& port : availablePorts()) {
        text += jsonLine({
                    {"port", QString::fromStdWString(port.portName)},
                    {"description", QString::fromStdWString(port.description)},
                    {"manufacturer", QString::fromStdWString(port.manufacturer)},
                    {"serialNumber", QString::fromStdWString(port.serialNumber)},
                    {"vendorId", port.vendorId},
                    {"productId", port.productId},
                }) +
                '\n';
    }
    return printOut(text) ? ExitStatus::Success : ExitStatus::Failure;
}

ExitStatus ports(CommandLine& line, const QStringList& arguments)
{
    options::addJson(line);
    line.parse(arguments);
    line.operands(0, "no arguments");
    if (const std::optional<ExitStatus> status = line.verdict()) {
        return *status;
    }
    if (options::json(line)) {
        return printJson();
    }
    const std::vector<Row> rows = portRows();
    const QString list = isTerminal(stdout) ? table(rows) : tabSeparated(rows);
    return printOut(list.toLocal8Bit()) ? ExitStatus::Success : ExitStatus::Failure;
}

} // namespace

const Command portsCommand = {"ports", "[--json]",
    "Lists the serial ports of this machine, one a line: name, description, "
    "manufacturer, serial number, and the vendor and product ids in hexadecimal. "
    "On a terminal the fields stand in columns below a header; elsewhere there are "
    "tabs between them, and no header.",
    ports};
