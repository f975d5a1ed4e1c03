#include "serial/PortEnumerator.h"

#include "support/Printable.h"
#include "tests/support/MockMachine.h"

#include <QDir>
#include <QRegularExpression>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <QTest>

#include <cstdlib>

#include <fcntl.h>

class PortEnumeratorTest : public QObject
{
    Q_OBJECT

    const QTemporaryDir runtime;

    /// One line for each port, with bars between the fields.
    static QString listing()
    {
        QStringList lines;
        for (const PortInfo& port : availablePorts()) {
            const QString ids =
                QStringLiteral("%1:%2").arg(port.vendorId, 4, 16, QChar('0')).arg(port.productId, 4, 16, QChar('0'));
            const std::wstring texts =
                port.portName + L'|' + port.description + L'|' + port.manufacturer + L'|' + port.serialNumber + L'|';
            lines += printable(QString::fromStdWString(texts)) + (ids == "0000:0000" ? QString() : ids);
        }
        return lines.join('\n');
    }

private Q_SLOTS:
    void init()
    {
        QTest::failOnWarning(QRegularExpression(".*"));
        QVERIFY(QDir(runtime.path()).removeRecursively() && QDir().mkpath(runtime.path() + "/serial"));
        QVERIFY(QFile::setPermissions(runtime.path(), QFile::Permissions(0x7700)));
        qputenv("XDG_RUNTIME_DIR", runtime.path().toLocal8Bit());
    }

    void machines_data()
    {
        QTest::addColumn<QString>("machineAndList");
        QTest::newRow("nothing") << "tty;virtual;console\ntty;virtual;ptmx\ntty;virtual;tty0\ntty;virtual;hvc0\n=\n";
        QTest::newRow("two adapters of a kind, ACM with a serial number, and without") <<
            R"(usb;1-1;ttyUSB10;idVendor=10c4|idProduct=ea60|manufacturer=Silicon Labs|product=CP2102 USB|serial=0001
usb;1-4;ttyUSB2;idVendor=10c4|idProduct=ea60|manufacturer=Silicon Labs|product=CP2102 USB|serial=0002
usb;1-5;ttyACM0;idVendor=2341|idProduct=0043|product=Uno|serial=857|ID_VENDOR_FROM_DATABASE=Arduino
usb;1-2;ttyACM1;idVendor=0483|idProduct=5740|ID_MODEL_FROM_DATABASE=Port;ID_MODEL_ENC=5740|ID_MODEL_ID=5740
device;pci0000:00/0000:00:14.0/usb1/1-5/1-5:1.0;SUBSYSTEM=usb|DEVTYPE=usb_interface|interface=GDB Server\n
usb;1-3;ttyACM2;idVendor=0000|idProduct=0001|product=  ;ID_BUS=usb|ID_MODEL_FROM_DATABASE=xHCI
=
/dev/ttyACM0|Uno, GDB Server, USB|Arduino|857|2341:0043
/dev/ttyACM1|Port, USB|||0483:5740
/dev/ttyACM2|USB serial port|||0000:0001
/dev/ttyUSB2|CP2102 USB|Silicon Labs|0002|10c4:ea60
/dev/ttyUSB10|CP2102 USB|Silicon Labs|0001|10c4:ea60)";
        QTest::newRow("blanks, umlauts, percent and control signs") <<
            R"(usb;1-1;ttyUSB0;product=Grüner 100% %1 usb-Stick\n|manufacturer=Müller & Söhne\n
device;usbip/1;SUBSYSTEM=usbip
tty;usbip/1;ttyUSB1;ID_BUS=usb|ID_MODEL_ENC=50\x25\x20Gr\xc3\xbcn\x1b[2J\xZZ \x4|ID_MODEL_ID=7523|ID_VENDOR_ENC=A\x09B
=
/dev/ttyUSB0|Grüner 100% %1 usb-Stick|Müller & Söhne||
/dev/ttyUSB1|50% Grün\u{001b}[2J\xZZ \x4, USB|A\u{0009}B||0000:7523)";
        QTest::newRow("UARTs, two of them placeholders; one does not show its type") <<
            R"(device;platform/serial8250;SUBSYSTEM=platform|driver=../../../bus/platform/drivers/serial8250
tty;platform/serial8250;ttyS6
tty;platform/serial8250/serial8250:0/serial8250:0.1;ttyS1;type=0\n
device;pci0000:00/0:16.3;SUBSYSTEM=pci|vendor=0x8086|device=0x9d3d|ID_MODEL_FROM_DATABASE=SOL|ID_VENDOR_FROM_DATABASE=Intel
tty;pci0000:00/0:16.3/0:16.3:0/0:16.3:0.0;ttyS4;type=4\n
device;pnp0/00:04;SUBSYSTEM=pnp
tty;pnp0/00:04/00:04:0/00:04:0.0;ttyS0;type=4\n
=
/dev/ttyS0|Serial port|||
/dev/ttyS4|SOL|Intel||8086:9d3d)";
        QTest::newRow("Bluetooth, free and connected") << R"(tty;virtual;rfcomm0;address=00:11:22:33:44:55|channel=1
usb;1-7;rfcomm1;product=USB Radio;ID_BUS=usb
=
/dev/rfcomm0|Bluetooth serial port 00:11:22:33:44:55|||
/dev/rfcomm1|Bluetooth serial port|||)";
    }

    void machines()
    {
        QFETCH(QString, machineAndList);
        const QStringList parts = machineAndList.split("\n=\n");
        const MockMachine mock(parts[0].toUtf8());
        QCOMPARE(listing(), parts[1]);
    }

    void virtualPorts()
    {
        const MockMachine mock("usb;1-1;ttyUSB0;product=A");
        const QString hardware = "/dev/ttyUSB0|A, USB|||";
        const int master = posix_openpt(O_RDWR | O_NOCTTY);
        QVERIFY(master >= 0 && grantpt(master) == 0 && unlockpt(master) == 0);
        const QString folder = runtime.path() + "/serial/";
        QVERIFY(QFile::link(ptsname(master), folder + "device") && QFile::link("/dev/null", folder + "null"));
        QVERIFY(QFile::link("/nowhere/gone", folder + "gone") && QFile::link(runtime.path(), folder + "folder"));
        QCOMPARE(listing(), hardware + '\n' + folder + "device||||");

        QVERIFY(QFile::setPermissions(runtime.path(), QFile::Permissions(0x7777)));
        qputenv("TMPDIR", runtime.path().toLocal8Bit());
        QCOMPARE(listing(), hardware); // anybody could have put the link there
        QVERIFY(QDir(runtime.path()).entryList({"runtime-*"}).isEmpty());
        QTest::ignoreMessage(QtWarningMsg, QRegularExpression("wrong permissions"));
        const QString fallback = QStandardPaths::writableLocation(QStandardPaths::RuntimeLocation) + "/serial";
        QVERIFY(QDir().mkdir(fallback) && QFile::link(ptsname(master), fallback + "/other"));
        QCOMPARE(listing(), hardware + '\n' + fallback + "/other||||");
        close(master);
    }
};

QTEST_GUILESS_MAIN(PortEnumeratorTest)
#include "PortEnumeratorTest.moc"
