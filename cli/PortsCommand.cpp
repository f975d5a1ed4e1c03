#include "cli/PortsCommand.h"

#include "cli/Terminal.h"
#include "serial/PortEnumerator.h"

#include <QString>
#include <QStringList>

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

} // namespace

ExitStatus listPorts(QTextStream& out, bool toTerminal)
{
    if (toTerminal) {
        out << "Port\tDescription\tManufacturer\tSerial number\tIds\n";
    }
    for (const PortInfo& port : availablePorts()) {
        const QStringList fields = {
            text(port.portName), text(port.description), text(port.manufacturer), text(port.serialNumber), idsOf(port)};
        out << fields.join(QLatin1Char('\t')) << '\n';
    }
    out.flush();
    return out.status() == QTextStream::Ok ? ExitStatus::Success : ExitStatus::Failure;
}
