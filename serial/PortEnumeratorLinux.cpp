#include "serial/PortEnumerator.h"
#include "serial/PortRules.h"
#include "serial/TerminalLine.h"
#include "support/VirtualPortFolder.h"

#include <QByteArray>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QString>

#include <algorithm>
#include <initializer_list>
#include <memory>
#include <tuple>

#include <libudev.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>

namespace
{

template <auto Function>
struct Release {
    template <typename Object>
    void operator()(Object* object) const
    {
        Function(object);
    }
};

using Udev = std::unique_ptr<udev, Release<udev_unref>>;
using UdevEnumeration = std::unique_ptr<udev_enumerate, Release<udev_enumerate_unref>>;
using UdevDevice = std::unique_ptr<udev_device, Release<udev_device_unref>>;

/// A property of the udev database; empty when there is none, and when there is no device.
QByteArray property(udev_device* device, const char* name)
{
    return device ? QByteArray(udev_device_get_property_value(device, name)) : QByteArray();
}

/// A file of the device's folder in sysfs; empty when it can't be read, and when there is no device.
QByteArray attribute(udev_device* device, const char* name)
{
    return device ? QByteArray(udev_device_get_sysattr_value(device, name)) : QByteArray();
}

/// Takes back how udev writes bytes that it does not want in a file name: as \xNN.
QByteArray decoded(const QByteArray& text)
{
    QByteArray plain;
    for (qsizetype i = 0; i < text.size(); ++i) {
        const QByteArray digits = text.mid(i + 2, 2);
        bool isHex = false;
        const int byte = digits.size() == 2 ? digits.toInt(&isHex, 16) : 0;
        if (isHex && text.mid(i, 2) == "\\x") {
            plain += static_cast<char>(byte);
            i += 3;
        } else {
            plain += text[i];
        }
    }
    return plain;
}

/// The string that a device reports of itself, as udev has it. Where the device has none, udev puts the number there.
QByteArray reportedString(udev_device* terminal, const char* encodedName, const char* numberName)
{
    const QByteArray text = property(terminal, encodedName);
    return text == property(terminal, numberName) ? QByteArray() : decoded(text);
}

/// The first of the texts, UTF-8, that has more in it than blanks.
QString firstOf(std::initializer_list<QByteArray> texts)
{
    for (const QByteArray& bytes : texts) {
        QString text = QString::fromUtf8(bytes).trimmed();
        if (!text.isEmpty()) {
            return text;
        }
    }
    return QString();
}

std::uint16_t firstNumberOf(std::initializer_list<QByteArray> texts)
{
    for (const QByteArray& text : texts) {
        bool isHex = false;
        const std::uint16_t number = text.toUShort(&isHex, 16);
        if (isHex) {
            return number;
        }
    }
    return 0;
}

/// @param usb the USB device that the terminal belongs to; may be null
void describeUsb(PortInfo& port, udev_device* terminal, udev_device* usb)
{
    QString description = firstOf({attribute(usb, "product"), reportedString(terminal, "ID_MODEL_ENC", "ID_MODEL_ID"),
        property(usb, "ID_MODEL_FROM_DATABASE"), "USB serial port"});
    // What tells the ports of a device apart that has several.
    const QString function = firstOf(
        {attribute(udev_device_get_parent_with_subsystem_devtype(terminal, "usb", "usb_interface"), "interface")});
    if (!description.contains(function)) {
        description += QLatin1String(", ") + function;
    }
    if (!description.contains(QLatin1String("usb"), Qt::CaseInsensitive)) {
        description += QLatin1String(", USB");
    }
    port.description = description.toStdWString();
    port.manufacturer =
        firstOf({attribute(usb, "manufacturer"), reportedString(terminal, "ID_VENDOR_ENC", "ID_VENDOR_ID"),
                    property(usb, "ID_VENDOR_FROM_DATABASE")})
            .toStdWString();
    port.serialNumber = firstOf({attribute(usb, "serial"), property(terminal, "ID_SERIAL_SHORT")}).toStdWString();
    port.vendorId = firstNumberOf({attribute(usb, "idVendor"), property(terminal, "ID_VENDOR_ID")});
    port.productId = firstNumberOf({attribute(usb, "idProduct"), property(terminal, "ID_MODEL_ID")});
}

void describePci(PortInfo& port, udev_device* pci)
{
    port.description = firstOf({property(pci, "ID_MODEL_FROM_DATABASE"), "PCI serial port"}).toStdWString();
    port.manufacturer = firstOf({property(pci, "ID_VENDOR_FROM_DATABASE")}).toStdWString();
    port.vendorId = firstNumberOf({attribute(pci, "vendor")});
    port.productId = firstNumberOf({attribute(pci, "device")});
}

void describeBluetooth(PortInfo& port, udev_device* terminal)
{
    port.description = firstOf({"Bluetooth serial port " + attribute(terminal, "address")}).toStdWString();
}

/// A terminal of the Bluetooth RFCOMM driver. It has no hardware parent while no connection stands, and the parents of
/// the Bluetooth controller, most often a USB one, while one stands.
bool isBluetooth(udev_device* terminal)
{
    return QByteArray(udev_device_get_sysname(terminal)).startsWith("rfcomm");
}

/// A terminal that the kernel makes up, such as a console. Its path tells it, before it costs the reading of a device.
bool isVirtual(const QByteArray& path)
{
    return path.startsWith("/sys/devices/virtual/tty/") && !path.contains("/rfcomm");
}

/// The 8250 driver makes terminals for ports that may turn up later. Their UART type is 0, unknown. Older kernels show
/// the type to root alone; there, the platform device of the driver itself tells them.
bool isPlaceholder(udev_device* terminal)
{
    const QByteArray type = attribute(terminal, "type");
    udev_device* parent = udev_device_get_parent(terminal);
    return type == "0" || (type.isEmpty() && parent && qstrcmp(udev_device_get_driver(parent), "serial8250") == 0);
}

PortInfo describe(udev_device* terminal)
{
    PortInfo port;
    port.portName = QFile::decodeName(udev_device_get_devnode(terminal)).toStdWString();
    udev_device* usb = udev_device_get_parent_with_subsystem_devtype(terminal, "usb", "usb_device");
    if (isBluetooth(terminal)) {
        describeBluetooth(port, terminal);
    } else if (usb || property(terminal, "ID_BUS") == "usb") {
        describeUsb(port, terminal, usb);
    } else if (udev_device* pci = udev_device_get_parent_with_subsystem_devtype(terminal, "pci", nullptr)) {
        describePci(port, pci);
    } else {
        port.description = L"Serial port";
    }
    return port;
}

/// Sorts /dev/ttyUSB2 before /dev/ttyUSB10.
bool precedes(const PortInfo& left, const PortInfo& right)
{
    const auto key = [](const std::wstring& name) {
        const std::wstring stem = name.substr(0, name.find_last_not_of(L"0123456789") + 1);
        return std::make_tuple(stem, name.size(), name);
    };
    return key(left.portName) < key(right.portName);
}

/// The terminals with hardware behind them: USB, ACM, PCI, platform UARTs and Bluetooth. Sorted by name, numbers by
/// their value.
std::vector<PortInfo> hardwarePorts()
{
    std::vector<PortInfo> ports;
    const Udev context(udev_new());
    if (!context) {
        return ports;
    }
    const UdevEnumeration enumeration(udev_enumerate_new(context.get()));
    // Without tty0 to tty63, the virtual consoles of the kernel, which take longer to look at than all the rest.
    if (!enumeration || udev_enumerate_add_match_subsystem(enumeration.get(), "tty") < 0 ||
        udev_enumerate_add_match_sysname(enumeration.get(), "tty[!0-9]*") < 0 ||
        udev_enumerate_add_match_sysname(enumeration.get(), "[!t]*") < 0 ||
        udev_enumerate_scan_devices(enumeration.get()) < 0) {
        return ports;
    }

    udev_list_entry* entry = nullptr;
    udev_list_entry_foreach(entry, udev_enumerate_get_list_entry(enumeration.get()))
    {
        const char* path = udev_list_entry_get_name(entry);
        if (isVirtual(path)) {
            continue;
        }
        const UdevDevice terminal(udev_device_new_from_syspath(context.get(), path));
        if (terminal && udev_device_get_devnode(terminal.get()) && !isPlaceholder(terminal.get())) {
            ports.push_back(describe(terminal.get()));
        }
    }
    std::sort(ports.begin(), ports.end(), precedes);
    return ports;
}

/// Whether there is a terminal at the path now.
bool isTerminal(const QString& path)
{
    struct stat status = {};
    if (stat(QFile::encodeName(path).constData(), &status) != 0 || !S_ISCHR(status.st_mode)) {
        return false;
    }
    // These are not in sysfs.
    if (TerminalLine::isPseudoTerminal(status.st_rdev)) {
        return true;
    }
    const QString subsystem =
        QStringLiteral("/sys/dev/char/%1:%2/subsystem").arg(major(status.st_rdev)).arg(minor(status.st_rdev));
    return QFileInfo(QFile::symLinkTarget(subsystem)).fileName() == QLatin1String("tty");
}

/// The links to terminals in the folder of virtual ports, sorted by name.
std::vector<std::wstring> virtualPortNames()
{
    std::vector<std::wstring> names;
    const QString folder = virtualPortFolder();
    if (folder.isEmpty()) {
        return names;
    }
    for (const QFileInfo& entry : QDir(folder).entryInfoList(QDir::Files | QDir::System, QDir::Name)) {
        if (entry.isSymLink() && isTerminal(entry.filePath())) {
            names.push_back(entry.filePath().toStdWString());
        }
    }
    return names;
}

} // namespace

std::vector<PortInfo> availablePorts()
{
    std::vector<PortInfo> ports = hardwarePorts();
    appendNewNames(ports, virtualPortNames());
    return ports;
}
