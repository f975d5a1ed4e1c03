#include "cli/PortChoice.h"

#include "support/Printable.h"

#include <QFile>

#include <algorithm>
#include <cstdint>
#include <optional>

#ifndef Q_OS_WIN
#include <sys/stat.h>
#endif

namespace
{

constexpr QLatin1String usbPrefix("usb:");

/// An adapter as the command line describes it.
struct UsbSelector {
    std::uint16_t vendorId = 0;
    std::uint16_t productId = 0;
    /// Nothing: any serial number will do.
    std::optional<QString> serialNumber;

    bool fits(const PortInfo& port) const
    {
        return port.vendorId == vendorId && port.productId == productId &&
               (!serialNumber || QString::fromStdWString(port.serialNumber) == *serialNumber);
    }
};

std::optional<UsbSelector> parseUsbSelector(const QString& text)
{
    const QString ids = text.sliced(usbPrefix.size());
    bool vendorValid = false;
    bool productValid = false;
    UsbSelector selector;
    selector.vendorId = ids.section(u':', 0, 0).toUShort(&vendorValid, 16);
    selector.productId = ids.section(u':', 1, 1).toUShort(&productValid, 16);
    if (ids.count(u':') >= 2) {
        selector.serialNumber = ids.section(u':', 2);
    }
    const bool valid = vendorValid && productValid && (!selector.serialNumber || !selector.serialNumber->isEmpty());
    return valid ? std::optional(selector) : std::nullopt;
}

/// The same text for all names of one port.
QString identityOf(const QString& portName)
{
#ifdef Q_OS_WIN
    return portName.toUpper();
#else
    struct stat status = {};
    const bool isDevice = ::stat(QFile::encodeName(portName).constData(), &status) == 0 && S_ISCHR(status.st_mode);
    return isDevice ? QStringLiteral("device %1").arg(status.st_rdev) : portName;
#endif
}

PortChoice chooseListed(const QString& given, const PortInfo& port)
{
    return {given, QString::fromStdWString(port.portName), QString::fromStdWString(port.serialNumber)};
}

PortChoice chooseByName(const QString& given, const std::vector<PortInfo>& available)
{
    const auto listed = std::ranges::find_if(available, [&given](const PortInfo& port) {
        return identityOf(QString::fromStdWString(port.portName)) == identityOf(given);
    });
    return {given, given, listed == available.end() ? QString() : QString::fromStdWString(listed->serialNumber)};
}

/// Adds the one port that the selector `given` fits, or says why there is none.
void chooseAdapter(const QString& given, const std::vector<PortInfo>& available, PortChoices& choices)
{
    const std::optional<UsbSelector> selector = parseUsbSelector(given);
    if (!selector) {
        choices.problem = QStringLiteral("%1 is not usb:VID:PID or usb:VID:PID:SERIAL, with ids in hexadecimal digits")
                              .arg(quoted(given));
        return;
    }
    QStringList names;
    for (const PortInfo& port : available) {
        if (selector->fits(port)) {
            names << quoted(QString::fromStdWString(port.portName));
            choices.ports.push_back(chooseListed(given, port));
        }
    }
    if (names.isEmpty()) {
        choices.problem = QStringLiteral("no port fits %1").arg(quoted(given));
    } else if (names.size() > 1) {
        choices.problem =
            QStringLiteral("several ports fit %1: %2").arg(quoted(given), names.join(QStringLiteral(", ")));
    }
}

} // namespace

PortChoices choosePorts(const QStringList& given, const std::vector<PortInfo>& available)
{
    PortChoices choices;
    for (const QString& text : given) {
        if (text.startsWith(usbPrefix)) {
            chooseAdapter(text, available, choices);
        } else if (text.isEmpty()) {
            choices.problem = QStringLiteral("the name of a port is empty");
        } else {
            choices.ports.push_back(chooseByName(text, available));
        }
        if (!choices.problem.isEmpty()) {
            return choices;
        }
        const PortChoice& added = choices.ports.back();
        const auto isSame = [&added](
                                const PortChoice& port) { return identityOf(port.name) == identityOf(added.name); };
        const auto first = std::ranges::find_if(choices.ports, isSame);
        if (&*first != &added) {
            choices.problem = QStringLiteral("%1 and %2 are the same port").arg(quoted(first->given), quoted(text));
            return choices;
        }
    }
    return choices;
}
