#include "serial/PortEnumerator.h"
#include "standin/win32/Win32Layer.h"

#include <QRegularExpression>
#include <QStringList>
#include <QTest>

#include <setupapi.h>

using namespace std::string_view_literals;
using win32::Value;
using win32::Values;

namespace
{

// The setup classes of ports and modems, the interface classes of the same.
constexpr GUID ports = {0x4D36E978, 0xE325, 0x11CE, {0xBF, 0xC1, 0x08, 0x00, 0x2B, 0xE1, 0x03, 0x18}};
constexpr GUID modems = {0x4D36E96D, 0xE325, 0x11CE, {0xBF, 0xC1, 0x08, 0x00, 0x2B, 0xE1, 0x03, 0x18}};
constexpr GUID comPorts = {0x86E0D1E0, 0x8089, 0x11D0, {0x9C, 0xE4, 0x08, 0x00, 0x3E, 0x30, 0x1F, 0x73}};
constexpr GUID comModems = {0x2C7089AA, 0x2E0E, 0x11D1, {0xB1, 0x14, 0x00, 0xC0, 0x4F, 0xC2, 0xAA, 0xE4}};

constexpr DWORD binary = 3;
constexpr DWORD anyCode = 4711;
const std::u16string longText(500, u'y');

const QString ftdi = "COM3|USB Serial Port|FTDI|A50285BI|403:6001";
const QString arduino = "COM5|Arduino|Arduino LLC|85736|2341:43";
const QString pci = "COM6|UART||A|8086:9d3d";
const QString com0com = "COM8|com0com|||0:12";
const QString modem = "COM9||||0:0";
const QStringList devices = {ftdi, arduino, pci, com0com, modem};
const QStringList names = {"COM80||||0:0", "com8||||0:0", "LPT9||||0:0", "||||0:0"};

/// Text in the registry need not end with a zero.
Value unterminated(std::u16string_view text)
{
    Value value = Value::text(text);
    value.bytes.resize(2 * text.size());
    return value;
}

Values named(std::u16string_view portName)
{
    return {{u"PortName", Value::text(portName)}};
}

/// An FTDI adapter in two classes, a composite device whose parent has the number, a PCI port with nothing but
/// "PortNumber", a printer port, a device that is unplugged, a virtual port that is no more than a name, and a modem.
/// Windows knows no case in the names of keys and values.
win32::Machine machine()
{
    win32::Machine machine;
    machine.devices = {{1, {u"HTREE\\ROOT\\0"}}, {21, {u"USB\\VID_2341&PID_0043\\85736", 1}},
        {31, {u"ACPI\\PNP0A08\\0", 32}}, {32, {u"USB\\ROOT\\A", 1}},
        {10, {u"FTDIBUS\\VID_0403+PID_6001+A50285BI\\0000", 1, ports, {comPorts}, named(u"COM3"),
                 {{SPDRP_DEVICEDESC, Value::text(u"USB Serial Port")}, {SPDRP_MFG, Value::text(u"FTDI")}}}},
        {20, {u"USB\\VID_2341&PID_0043&MI_00\\6&2A3B&0", 21, ports, {}, named(u"COM5"),
                 {{SPDRP_DEVICEDESC, Value::text(u"Arduino")}, {SPDRP_MFG, Value::text(u"Arduino LLC")}}}},
        {30, {u"PCI\\VEN_8086&DEV_9D3D\\3&11583659", 31, modems, {}, {{u"PORTNUMBER", Value::number(6)}},
                 {{SPDRP_DEVICEDESC, Value::text(u"UART")}}}},
        {40, {u"ACPI\\PNP0400\\1", 1, ports, {}, named(u"LPT1")}},
        {45, {u"ACPI\\PNP0501\\1", 1, ports, {}, named(u"COM1"), {}, false}},
        {50, {u"COM0COM\\VID_0&VEN_8086&PID_&DEV_12\\A", 1, {}, {comPorts}, named(u"COM8"),
                 {{SPDRP_DEVICEDESC, Value::text(u"com0com")}}}},
        {60, {u"ACPI\\B", 0, {}, {comModems}, named(u"COM9")}}};
    Values& map = machine.registry[u"Hardware\\DeviceMap\\SerialComm"];
    for (const char16_t* name : {u"COM8", u"COM80", u"com8", u"LPT9", u"", u""}) {
        map.push_back({u"Serial", Value::text(name)});
    }
    return machine;
}

QStringList rows()
{
    QStringList list;
    for (const PortInfo& port : availablePorts()) {
        const std::wstring texts = port.portName + L'|' + port.description + L'|' + port.manufacturer + L'|';
        list += QString::fromStdWString(texts + port.serialNumber) +
                QStringLiteral("|%1:%2").arg(port.vendorId, 0, 16).arg(port.productId, 0, 16);
    }
    return list;
}

/// The functions called since the last time.
QStringList calls()
{
    QStringList list;
    for (const std::string& call : win32::takeCalls()) {
        list += QString::fromStdString(call);
    }
    return list;
}

QStringList replaced(QStringList list, int row, const QString& text)
{
    list[row] = text;
    return list;
}

} // namespace

class PortEnumeratorWinTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init() { win32::reset(); }
    void cleanup() { QCOMPARE(win32::openHandles(), 0U); }

    void portNames()
    {
        const Value number = Value::number(3);
        const Value data = Value::text(u"COM9", binary);
        // "PortName", "PortNumber", and the name that comes of it.
        const std::vector<std::tuple<Value, Value, QString>> table = {
            {Value::text({u"C\0D", 3}), number, "C"},
            {Value::text(u""), number, "COM3"},
            {Value::number(0), Value::text(u"D"), "COM0"},
            {data, Value::number(0xFFFFFFFF), "COM4294967295"},
            {data, Value::text(u"ttyX"), "ttyX"},
            {data, Value::text(u"COM9", REG_EXPAND_SZ), ""},
            {Value::text(longText), data, QString(500, 'y')},
            {unterminated(longText.substr(0, 130)), data, QString(130, 'y')},
        };
        for (const auto& [name, other, expected] : table) {
            win32::reset();
            const Values values = {{u"PortName", name}, {u"PortNumber", other}};
            win32::setMachine({.devices = {{7, {u"X", 0, {}, {comModems}, values}}}});
            // As if the value had grown since its size was told.
            win32::failCall("RegQueryValueExW", 2, ERROR_MORE_DATA);
            QCOMPARE(rows(), expected.isEmpty() ? QStringList() : QStringList(expected + "||||0:0"));
            // A device without a name is read no further.
            QCOMPARE(calls().contains("CM_Get_Device_IDW"), !expected.isEmpty());
        }
    }

    void failures_data()
    {
        QTest::addColumn<int>("nth");
        QTest::addColumn<QStringList>("list");
        const QStringList all = devices + names;
        const QStringList late = QStringList({arduino, pci, ftdi, com0com, modem}) + names;
        const auto fails = [](const char* function, int nth, const QStringList& list) {
            QTest::addRow("%s %d", function, nth) << nth << list;
        };
        fails("nothing", 1, all);
        fails("SetupDiGetClassDevsW", 1, {});
        fails("SetupDiGetClassDevsW", 3, devices.first(3));
        fails("SetupDiEnumDeviceInfo", 2, QStringList({ftdi, pci, com0com, modem}) + names);
        fails("SetupDiOpenDevRegKey", 1, late);
        fails("RegQueryValueExW", 1, late);
        fails("SetupDiGetDeviceRegistryPropertyW", 1, replaced(all, 0, "COM3|USB Serial Port||A50285BI|403:6001"));
        fails("SetupDiGetDeviceRegistryPropertyW", 2, replaced(all, 0, "COM3||FTDI|A50285BI|403:6001"));
        fails("CM_Get_Device_IDW", 2, replaced(all, 1, "COM5|Arduino|Arduino LLC|85736|0:0"));
        fails("CM_Get_Device_IDW", 3, replaced(all, 1, "COM5|Arduino|Arduino LLC||2341:43"));
        fails("CM_Get_DevNode_Status", 3, replaced(all, 2, "COM6|UART|||8086:9d3d"));
        fails("CM_Get_Parent", 2, replaced(all, 2, "COM6|UART|||8086:9d3d"));
        fails("RegOpenKeyExW", 1, devices);
        fails("RegEnumValueW", 4, all.first(6));
    }

    void failures()
    {
        QFETCH(int, nth);
        win32::setMachine(machine());
        win32::failCall(QByteArray(QTest::currentDataTag()).split(' ')[0].toStdString(), nth, anyCode);
        QTEST(rows(), "list");
    }

    void everyFailureClosesAll()
    {
        win32::setMachine(machine());
        rows();
        // What fails to close stays open.
        const QStringList functions = calls().filter(QRegularExpression("^(?!RegClose|SetupDiDestroy)"));
        QVERIFY(functions.size() > 40);
        for (int failing = 0; failing < functions.size(); ++failing) {
            const auto nth = functions.first(failing + 1).count(functions[failing]);
            win32::failCall(functions[failing].toStdString(), int(nth), anyCode);
            rows();
            QVERIFY2(win32::openHandles() == 0, qPrintable(functions[failing]));
        }
    }

    void longTexts()
    {
        win32::Machine data = machine();
        data.devices[10].properties = {
            {SPDRP_DEVICEDESC, Value::text(longText, REG_EXPAND_SZ)}, {SPDRP_MFG, Value::text(longText, binary)}};
        data.devices[20].properties = {{SPDRP_DEVICEDESC, Value::text(u"binary but short", binary)}};
        Values& map = data.registry[u"HARDWARE\\DEVICEMAP\\SERIALCOMM"];
        map.clear();
        for (const std::u16string_view name :
            {u"A"sv, std::u16string_view(longText), u"COM20"sv, u"B\0C"sv, u"COM21"sv}) {
            map.push_back({u"Serial", unterminated(name)});
        }
        win32::setMachine(data);
        const QString y(500, 'y');
        const QStringList expected = {"COM3|" + y + "||A50285BI|403:6001", "COM5|binary but short||85736|2341:43", pci,
            com0com, modem, "A||||0:0", y + "||||0:0", "COM20||||0:0", "B||||0:0", "COM21||||0:0"};
        // As if the texts had grown since their size was told.
        win32::failCall("SetupDiGetDeviceRegistryPropertyW", 3, ERROR_INSUFFICIENT_BUFFER);
        win32::failCall("RegEnumValueW", 3, ERROR_MORE_DATA);
        QCOMPARE(rows(), expected);
    }
};

QTEST_GUILESS_MAIN(PortEnumeratorWinTest)
#include "PortEnumeratorWinTest.moc"
