#include "cli/PortsCommand.h"

#include "cli/Commands.h"
#include "cli/Json.h"
#include "cli/RunOptions.h"
#include "cli/Terminal.h"
#include "serial/PortEnumerator.h"
#include "support/Printable.h"

#include <QString>
#include <QStringList>

#include <algorithm>
#include <vector>

namespace
{

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

std::vector<QStringList> portRows()
{
    std::vector<QStringList> rows;
    for (const PortInfo& port : availablePorts()) {
        rows.push_back({text(port.portName), text(port.description), text(port.manufacturer), text(port.serialNumber),
            idsOf(port)});
    }
    return rows;
}

/// The rows with blanks behind each field but the last, as many as its column wants.
QString aligned(const std::vector<QStringList>& rows)
{
    constexpr qsizetype gap = 2;
    std::vector<qsizetype> widths(static_cast<std::size_t>(rows.front().size()));
    for (const QStringList& row : rows) {
        for (std::size_t column = 0; column < widths.size(); ++column) {
            widths[column] = std::max(widths[column], row[static_cast<qsizetype>(column)].size());
        }
    }
    QString table;
    for (const QStringList& row : rows) {
        QString line;
        for (std::size_t column = 0; column < widths.size(); ++column) {
            line += row[static_cast<qsizetype>(column)].leftJustified(widths[column] + gap);
        }
        while (line.endsWith(u' ')) {
            line.chop(1);
        }
        table += line + u'\n';
    }
    return table;
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
    QTextStream out(stdout);
    return listPorts(out, isTerminal(stdout));
}

} // namespace

const Command portsCommand = {"ports", "[--json]",
    "Lists the serial ports of this machine, one a line: name, description,\n"
    "manufacturer, serial number, and the vendor and product ids in hexadecimal.\n"
    "On a terminal the fields stand in columns below a header; elsewhere there are\n"
    "tabs between them, and no header.",
    ports};

ExitStatus listPorts(QTextStream& out, bool toTerminal)
{
    std::vector<QStringList> rows = portRows();
    if (toTerminal) {
        rows.insert(rows.begin(), {"Port", "Description", "Manufacturer", "Serial number", "Ids"});
        out << aligned(rows);
    } else {
        for (const QStringList& row : rows) {
            out << row.join(u'\t') << '\n';
        }
    }
    out.flush();
    return out.status() == QTextStream::Ok ? ExitStatus::Success : ExitStatus::Failure;
}
