#include "serial/PortEnumerator.h"
#include "standin/win32/Win32Layer.h"

#include <QStringList>
#include <QTest>

#include <map>

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
/// "PortNumber", a printer port, a device that is unplugged, a virtual port that is no more than a name, and a modem
/// with long texts. Windows knows no case in the names of keys and values.
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
        {60, {u"ACPI\\B", 0, {}, {comModems}, named(u"COM9"),
                 {{SPDRP_DEVICEDESC, Value::text(longText, REG_EXPAND_SZ)},
                     {SPDRP_MFG, Value::text(longText, binary)}}}}};
    Values& map = machine.registry[u"Hardware\\DeviceMap\\SerialComm"];
    for (const std::u16string_view name : {u"COM8"sv, std::u16string_view(longText), u"com8"sv, u"LPT9\0C"sv, u""sv}) {
        map.push_back({u"Serial", unterminated(name)});
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
            {data, Value::number(0xFFFFFFFF), "COM4294967295"},
            {data, Value::text(u"COM9", REG_EXPAND_SZ), ""},
            {unterminated(longText), data, QString(500, 'y')},
        };
        for (const auto& [name, other, expected] : table) {
            win32::reset();
            const Values values = {{u"PortName", name}, {u"PortNumber", other}};
            win32::setMachine({.devices = {{7, {u"X", 0, {}, {comModems}, values}}}});
            // As if the value had grown since its size was told.
            win32::failCall("RegQueryValueExW", 2, ERROR_MORE_DATA);
            QCOMPARE(rows(), expected.isEmpty() ? QStringList() : QStringList(expected + "||||0:0"));
        }
    }

    /// A failure of any function costs what it was asked for, and no more.
    void failures()
    {
        win32::setMachine(machine());
        const QString y(500, 'y');
        const QStringList all = {"COM3|USB Serial Port|FTDI|A50285BI|403:6001",
            "COM5|Arduino|Arduino LLC|85736|2341:43", "COM6|UART||A|8086:9d3d", "COM8|com0com|||0:12",
            "COM9|" + y + "|||0:0", y + "||||0:0", "com8||||0:0", "LPT9||||0:0", "||||0:0"};
        win32::takeCalls();
        QCOMPARE(rows(), all);
        const std::vector<std::string> calls = win32::takeCalls();
        QVERIFY(calls.size() > 40);
        // As if a name had grown since its size was told.
        win32::failCall("RegEnumValueW", 1, ERROR_MORE_DATA);
        QCOMPARE(rows(), all);
        std::map<std::string, int> counts;
        for (const std::string& call : calls) {
            if (call.starts_with("RegClose") || call.starts_with("SetupDiDestroy")) {
                continue; // what fails to close stays open
            }
            win32::failCall(call, ++counts[call], anyCode);
            const QStringList left = rows();
            const auto isWhole = [&all](const QString& row) { return all.contains(row); };
            const auto damaged = left.size() - std::ranges::count_if(left, isWhole);
            const bool isList = call.find("ClassDevs") != std::string::npos || call.starts_with("RegEnum") ||
                                call.starts_with("RegOpen");
            QVERIFY2(damaged <= 1 && (isList || left.size() >= all.size() - 1), call.c_str());
            QVERIFY2(win32::openHandles() == 0, call.c_str());
        }
    }
};

QTEST_GUILESS_MAIN(PortEnumeratorWinTest)
#include "PortEnumeratorWinTest.moc"
