#include "tools/cli/PortsCommand.h"

#include "serial/PortEnumerator.h"

#include <QString>
#include <QStringList>

#include <algorithm>

namespace
{

/// The text on one line and without anything that a terminal or the reader of the columns would take for a command: a
/// device's strings are the device's to choose.
QString field(const std::wstring& wide)
{
    QString text = QString::fromStdWString(wide);
    std::replace_if(
        text.begin(), text.end(), [](QChar character) { return character.category() == QChar::Other_Control; }, u' ');
    return text;
}

QString idsOf(const PortInfo& port)
{
    if (port.vendorId == 0 && port.productId == 0)
        return QString();
    return QStringLiteral("%1:%2")
        .arg(port.vendorId, 4, 16, QLatin1Char('0'))
        .arg(port.productId, 4, 16, QLatin1Char('0'));
}

} // namespace

int listPorts(QTextStream& out, bool toTerminal)
{
    if (toTerminal)
        out << "Port\tDescription\tManufacturer\tSerial number\tIds\n";
    for (const PortInfo& port : availablePorts()) {
        const QStringList fields = {field(port.portName), field(port.description), field(port.manufacturer),
            field(port.serialNumber), idsOf(port)};
        out << fields.join(QLatin1Char('\t')) << '\n';
    }
    out.flush();
    return out.status() == QTextStream::Ok ? 0 : 1;
}
