#include "serial/PortRules.h"

#include "serial/PortScan.h"
#include "tests/serial/FakeDeviceApi.h"

#include <QTest>

using Api = FakeDeviceApi;
using Value = Api::Value;

namespace
{

const QString ftdi = "COM3|USB Serial Port|FTDI|A50285BI|403:6001";
const QString arduino = "COM5|Arduino|Arduino LLC|85736|2341:43";
const QString pci = "COM6|UART||A|8086:9d3d";
const QString com0com = "COM8|com0com|||0:12";
const QStringList map = {"COM80||||0:0", "com8||||0:0", "LPT9||||0:0", "||||0:0"};

const auto number = [](std::uint32_t value) {
    return Value{Api::numberType, {char16_t(value), char16_t(value >> 16)}};
};

/// An FTDI adapter in two classes, a composite device whose parent has the number, a PCI port with nothing but
/// "PortNumber", a printer port, and a virtual port that is no more than a name.
struct Machine : Api {
    Machine()
    {
        nodes = {{1, {u"HTREE\\ROOT\\0"}}, {21, {u"USB\\VID_2341&PID_0043\\85736", 1}}, {31, {u"ACPI\\PNP0A08\\0", 32}},
            {32, {u"USB\\ROOT\\A", 1}}, {40, {u"ACPI\\PNP0400\\1", 1, {{u"PortName", {1, u"LPT1"}}}}},
            {10, {u"FTDIBUS\\VID_0403+PID_6001+A50285BI\\0000", 1, {{u"PortName", {1, u"COM3"}}},
                     {{0, {1, u"USB Serial Port"}}, {11, {1, u"FTDI"}}}}},
            {20, {u"USB\\VID_2341&PID_0043&MI_00\\6&2A3B&0", 21, {{u"PortName", {1, u"COM5"}}},
                     {{0, {1, u"Arduino"}}, {11, {1, u"Arduino LLC"}}}}},
            {30, {u"PCI\\VEN_8086&DEV_9D3D\\3&11583659", 31, {{u"PortNumber", number(6)}}, {{0, {1, u"UART"}}}}},
            {50,
                {u"COM0COM\\VID_0&VEN_8086&PID_&DEV_12\\A", 1, {{u"PortName", {1, u"COM8"}}}, {{0, {1, u"com0com"}}}}}};
        classes = {{{10, 20, 40}, {30}, {10, 50}, {}}};
        serialComm = {{1, u"COM8"}, {1, u"COM80"}, {1, u"com8"}, {1, u"LPT9"}, {1, u""}, {1, u""}};
    }
};

QStringList rows(Api& api)
{
    QStringList list;
    for (const PortInfo& port : scanPorts(api)) {
        const std::wstring texts = port.portName + L'|' + port.description + L'|' + port.manufacturer + L'|';
        list += QString::fromStdWString(texts + port.serialNumber) +
                QStringLiteral("|%1:%2").arg(port.vendorId, 0, 16).arg(port.productId, 0, 16);
    }
    return list;
}

} // namespace

class PortRulesTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void identifierNumbers()
    {
        const std::vector<std::pair<QString, int>> table = {{"USB\\VID_0aF9&PID_6001", 0x0AF9},
            {"FTDIBUS\\VID_04031+PID_6001", 0x0403}, {"USB\\VID_1F&PID_6001", 0x1F}, {"USB\\VID_0000", 0},
            {"USB\\VID_F", 0xF}, {"USB\\VID_&PID_6001", -1}, {"USB\\VID_x&VID_1234", -1}, {"USB\\vid_0403", -1},
            {QStringLiteral("USB\\VID_\u0131\u0132&"), 0x12}};
        for (const auto& [identifier, expected] : table) {
            const std::optional<std::uint16_t> number = parseDeviceIdentifier(identifier.toStdU16String(), u"VID_");
            QVERIFY2(expected == (number ? *number : -1), qPrintable(identifier));
        }
    }

    void serialNumbers()
    {
        const std::vector<std::pair<std::u16string, std::u16string>> table = {
            {u"USB\\VID_10C4&PID_EA60\\0001", u"0001"}, {u"USB\\VID_10C4&PID_EA60\\5&1A2B&0&2", u""},
            {u"USB\\VID_10C4&PID_EA60\\AB12-07", u"AB12"}, {u"USB\\VID_10C4\\AB12-&7", u"AB12"},
            {u"USB\\VID_10C4\\A-B12", u"A-B12"}, {u"USB\\VID_10C4\\A-B-07", u"A-B-07"}, {u"USB\\VID-01\\X", u"X"},
            {u"USB\\VID_10C4\\", u""}, {u"FTDIBUS\\VID_0403+PID_6001+A50285BI\\0000", u"A50285BI"},
            {u"FTDIBUS\\VID_0403+PID_6001+A5", u""}, {u"FTDIBUS\\VID_0403\\0000", u""},
            {u"PCI\\VEN_8086&DEV_9D3D\\3", u""}, {u"usb\\VID_10C4\\0001", u""}};
        for (const auto& [identifier, expected] : table) {
            QVERIFY2(parseSerialNumber(identifier) == expected, qPrintable(QString::fromStdU16String(identifier)));
        }
    }

    void names()
    {
        for (const char16_t* name : {u"", u"LPT", u"XLPT1"}) {
            QVERIFY(!isPortNameAdmitted(name));
        }
        for (const char16_t* name : {u"lpt1", u"LP", u"LpT1", u"COM3"}) {
            QVERIFY(isPortNameAdmitted(name));
        }
        QVERIFY(
            toWide(u"a\U0001F50C") == L"a\U0001F50C" && toWide(std::u16string(2, 0xD83D)) == std::wstring(2, 0xD83D));
    }

    void portNames()
    {
        const Value binary = {3, u"COM9"};
        const std::u16string longName(300, u'x');
        const std::vector<std::tuple<Value, Value, QString>> table = {{{1, {u'C', 0, u'D'}}, number(3), "C"},
            {{1, u""}, number(3), "COM3"}, {number(0), {1, u"D"}, "COM0"},
            {binary, number(0xFFFFFFFF), "COM4294967295"}, {binary, {1, u"ttyX"}, "ttyX"}, {binary, {2, u"COM9"}, ""},
            {{1, longName, 400}, {1, u"D"}, QString(300, 'x')},
            {{1, longName.substr(0, 130)}, binary, QString(130, 'x')}};
        for (const auto& [name, other, expected] : table) {
            Api api;
            api.classes[3] = {7};
            api.nodes[7] = {u"X", 0, {{u"PortName", name}, {u"PortNumber", other}}};
            QCOMPARE(rows(api), expected.isEmpty() ? QStringList() : QStringList(expected + "||||0:0"));
            QCOMPARE(api.calls.contains("getDeviceId"), !expected.isEmpty()); // a dropped device is read no further
            QVERIFY(api.isTidy());
        }
    }

    void failures_data()
    {
        QTest::addColumn<QStringList>("list");
        const QStringList all = QStringList({ftdi, arduino, pci, com0com}) + map;
        const QStringList late = QStringList({arduino, pci, ftdi, com0com}) + map;
        const auto with = [=](int row, const QString& text) {
            return all.mid(0, row) + QStringList(text) + all.mid(row + 1);
        };
        QTest::newRow("nothing 0") << all;
        QTest::newRow("getClassDevs 1") << QStringList();
        QTest::newRow("getClassDevs 3") << all.mid(0, 3);
        QTest::newRow("enumDeviceInfo 2") << QStringList({ftdi, pci, com0com}) + map;
        QTest::newRow("openDevRegKey 1") << late;
        QTest::newRow("queryValue 1") << late;
        QTest::newRow("getDeviceRegistryProperty 1") << with(0, "COM3|USB Serial Port||A50285BI|403:6001");
        QTest::newRow("getDeviceRegistryProperty 2") << with(0, "COM3||FTDI|A50285BI|403:6001");
        QTest::newRow("getDeviceId 2") << with(1, "COM5|Arduino|Arduino LLC|85736|0:0");
        QTest::newRow("getDeviceId 3") << with(1, "COM5|Arduino|Arduino LLC||2341:43");
        QTest::newRow("getDevNodeStatus 3") << with(2, "COM6|UART|||8086:9d3d");
        QTest::newRow("getParent 2") << with(2, "COM6|UART|||8086:9d3d");
        QTest::newRow("openKey 1") << all.mid(0, 4);
        QTest::newRow("enumValue 4") << all.mid(0, 5);
    }

    void failures()
    {
        Machine api;
        const QStringList words = QString(QTest::currentDataTag()).split(' ');
        api.failing = words[0];
        api.failingCall = words[1].toInt();
        QTEST(rows(api), "list");
        QVERIFY(api.isTidy());
    }

    void everyFailureClosesAll()
    {
        qsizetype calls = 0;
        for (qsizetype failing = 0; failing <= calls; ++failing) {
            Machine api;
            api.failingCall = failing;
            rows(api);
            calls = std::max(calls, api.calls.size());
            QVERIFY2(api.isTidy(), qPrintable(api.calls.value(failing - 1)));
        }
        QVERIFY(calls > 40);
    }

    void longTexts()
    {
        Machine api;
        const std::u16string longText(500, u'y');
        const QString y(500, 'y');
        api.nodes[10].properties = {{0, {Api::expandableStringType, longText, 300}}, {11, {3, longText}}};
        api.nodes[20].properties = {{0, {3, u"binary but short"}}};
        api.serialComm = {{1, u"A"}, {1, longText, 700}, {1, u"COM20"}, {1, {u'B', 0, u'C'}}, {1, u"COM21"}};
        const QStringList expected = {"COM3|" + y + "||A50285BI|403:6001", "COM5|binary but short||85736|2341:43", pci,
            com0com, "A||||0:0", y + "||||0:0", "COM20||||0:0", "B||||0:0", "COM21||||0:0"};
        QCOMPARE(rows(api), expected);
        QVERIFY(api.isTidy());
    }
};

QTEST_APPLESS_MAIN(PortRulesTest)
#include "PortRulesTest.moc"
