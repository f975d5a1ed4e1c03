#include "serial/DeviceApiWin.h"

#include "serial/PortScan.h"
#include "standin/win32/Machine.h"
#include "standin/win32/Win32Layer.h"

#include <QTest>

#include <setupapi.h>

using win32::Value;

namespace
{

// The setup classes of ports and modems, the interface classes of the same.
constexpr GUID ports = {0x4D36E978, 0xE325, 0x11CE, {0xBF, 0xC1, 0x08, 0x00, 0x2B, 0xE1, 0x03, 0x18}};
constexpr GUID modems = {0x4D36E96D, 0xE325, 0x11CE, {0xBF, 0xC1, 0x08, 0x00, 0x2B, 0xE1, 0x03, 0x18}};
constexpr GUID comPorts = {0x86E0D1E0, 0x8089, 0x11D0, {0x9C, 0xE4, 0x08, 0x00, 0x3E, 0x30, 0x1F, 0x73}};
constexpr GUID comModems = {0x2C7089AA, 0x2E0E, 0x11D1, {0xB1, 0x14, 0x00, 0xC0, 0x4F, 0xC2, 0xAA, 0xE4}};

const std::u16string longText(200, u'x');

win32::Values named(std::u16string_view portName)
{
    return {{u"PortName", Value::text(portName)}};
}

/// Devices in all four classes, one of them in two.
win32::Machine machine()
{
    return {{{1, {u"HTREE\\ROOT\\0"}}, {2, {u"USB\\VID_0403&PID_6001\\A502", 1}},
                {3, {u"FTDIBUS\\VID_0403&PID_6001\\5&1", 2, ports, {comPorts}, named(u"COM5"),
                        {{SPDRP_MFG, Value::text(u"FTDI")}, {SPDRP_DEVICEDESC, Value::text(longText)}}}},
                {4, {u"PCI\\VEN_8086&DEV_1D3D", 1, ports, {}, named(u"LPT1")}},
                {5, {u"ROOT\\X", 1, ports, {}, named(u"COM6"), {}, false}},
                {6, {u"USB\\VID_12&PID_0000\\M1", 1, modems, {}, {{u"PORTNUMBER", Value::number(3)}}}},
                {7, {u"ACPI\\A", 0, {}, {comPorts}, named(longText)}},
                {8, {u"ACPI\\B", 0, {}, {comModems}, named(u"COM8")}}},
        {{u"Hardware\\DeviceMap\\SerialComm",
            {{u"Serial0", Value::text(u"COM5")}, {u"Serial1", Value::text(longText + u'1')},
                {u"Serial2", Value::text(u"LPT2")}}}}};
}

} // namespace

class DeviceApiWinTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void closing()
    {
        win32::setMachine(machine());
        const HDEVINFO set = SetupDiGetClassDevsW(&ports, nullptr, nullptr, DIGCF_PRESENT);
        HKEY key = nullptr;
        QCOMPARE(RegOpenKeyExW(HKEY_LOCAL_MACHINE, u"HARDWARE\\DEVICEMAP\\SERIALCOMM", 0, KEY_QUERY_VALUE, &key),
            LSTATUS(ERROR_SUCCESS));
        QVERIFY(!CloseHandle(set) && !CloseHandle(key) && win32::openHandles() == 2);
        QVERIFY(SetupDiDestroyDeviceInfoList(set) && RegCloseKey(key) == 0 && win32::openHandles() == 0);
    }

    void list_data()
    {
        QTest::addColumn<int>("nth");
        QTest::addColumn<QString>("list"); // x stands for a long text
        QTest::newRow("nothing") << 1 << "COM5,x,FTDI,A502,403,6001 COM3,,,M1,12,0 x COM8 x1 LPT2";
        QTest::newRow("SetupDiGetClassDevsW") << 3 << "COM5,x,FTDI,A502,403,6001 COM3,,,M1,12,0";
        QTest::newRow("SetupDiEnumDeviceInfo") << 1 << "COM3,,,M1,12,0 COM5,x,FTDI,A502,403,6001 x COM8 x1 LPT2";
        QTest::newRow("SetupDiOpenDevRegKey") << 3 << "COM5,x,FTDI,A502,403,6001 x COM8 x1 LPT2";
        QTest::newRow("RegQueryValueExW") << 4 << "COM5,x,FTDI,A502,403,6001 x COM8 x1 LPT2";
        QTest::newRow("CM_Get_Device_IDW") << 1 << "COM5,x,FTDI,A502,0,0 COM3,,,M1,12,0 x COM8 x1 LPT2";
        QTest::newRow("CM_Get_DevNode_Status") << 1 << "COM5,x,FTDI,,403,6001 COM3,,,M1,12,0 x COM8 x1 LPT2";
        QTest::newRow("CM_Get_Parent") << 1 << "COM5,x,FTDI,,403,6001 COM3,,,M1,12,0 x COM8 x1 LPT2";
        QTest::newRow("SetupDiGetDeviceRegistryPropertyW")
            << 3 << "COM5,,FTDI,A502,403,6001 COM3,,,M1,12,0 x COM8 x1 LPT2";
        QTest::newRow("RegOpenKeyExW") << 1 << "COM5,x,FTDI,A502,403,6001 COM3,,,M1,12,0 x COM8";
        QTest::newRow("RegEnumValueW") << 4 << "COM5,x,FTDI,A502,403,6001 COM3,,,M1,12,0 x COM8 x1";
    }

    void list()
    {
        QFETCH(int, nth);
        win32::setMachine(machine());
        win32::failCall(QTest::currentDataTag(), nth, 4711);
        DeviceApiWin api;
        QString text;
        for (const PortInfo& port : scanPorts(api)) {
            for (const std::wstring& part : {port.portName, port.description, port.manufacturer, port.serialNumber}) {
                text += QString::fromStdWString(part) + ',';
            }
            text += QString::number(port.vendorId, 16) + ',' + QString::number(port.productId, 16) + ' ';
        }
        text.remove(",,,,0,0").replace(QString::fromStdU16String(longText), "x");
        QTEST(text.trimmed(), "list");
        QCOMPARE(win32::openHandles(), 0U);
    }
};

QTEST_GUILESS_MAIN(DeviceApiWinTest)
#include "DeviceApiWinTest.moc"
