#pragma once

#include <QByteArray>
#include <QList>

#include <memory>
#include <stdexcept>

#include <umockdev.h>

/// A machine whose sysfs and udev database hold the devices of a text, for this process and as long as this lives. A
/// line of the text is "usb;1-1;ttyUSB0;CONTENT;CONTENT" for a USB device and the terminal in its interface,
/// "tty;PARENT;ttyS0;CONTENT" for any other terminal, or "device;PATH;CONTENT". Parents and paths are those below
/// /devices. Content is such as "product=Adapter|ID_BUS=usb": names in upper case are properties, others attributes.
class MockMachine
{
public:
    explicit MockMachine(const QByteArray& devices)
        : bed(umockdev_testbed_new(), g_object_unref)
    {
        add(controller, "SUBSYSTEM=pci|vendor=0x1b36|ID_MODEL_FROM_DATABASE=xHCI");
        for (const QByteArray& line : devices.split('\n')) {
            const QByteArrayList part = line.split(';');
            if (part[0] == "usb") {
                const QByteArray path = controller + "/usb1/" + part[1];
                add(path, "SUBSYSTEM=usb|DEVTYPE=usb_device|" + part[3]);
                addTerminal(path + '/' + part[1] + ":1.0/" + part[2], part[2], part.value(4));
            } else if (part[0] == "tty") {
                addTerminal(part[1], part[2], part.value(3));
            } else if (part[0] == "device") {
                add(part[1], part[2]);
            }
        }
    }

private:
    void addTerminal(const QByteArray& parent, const QByteArray& name, const QByteArray& content)
    {
        add(parent + "/tty/" + name, "SUBSYSTEM=tty|DEVNAME=/dev/" + name + '|' + content, "\nN: " + name);
    }
    void add(const QByteArray& path, const QByteArray& content, const QByteArray& node = "")
    {
        QByteArray text = "P: /devices/" + path + node;
        for (const QByteArray& item : content.split('|')) {
            if (!item.isEmpty()) {
                text += (item < "a" ? "\nE: " : item.startsWith("driver=") ? "\nL: " : "\nA: ") + item;
            }
        }
        if (!umockdev_in_mock_environment() || !umockdev_testbed_add_from_string(bed.get(), text + "\n", nullptr)) {
            throw std::runtime_error("umockdev can't make this machine");
        }
    }

    const QByteArray controller = "pci0000:00/0000:00:14.0";
    std::unique_ptr<UMockdevTestbed, decltype(&g_object_unref)> bed;
};
