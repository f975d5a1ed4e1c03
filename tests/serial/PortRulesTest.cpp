#include "serial/PortRules.h"

#include <QTest>

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
            {u"USB\\VID_10C4\\A-B12", u"A-B12"}, {u"USB\\VID_10C4\\A-7", u"A-7"}, {u"USB\\VID_10C4\\A-B-07", u"A-B-07"},
            {u"USB\\VID-01\\X", u"X"}, {u"USB\\VID_10C4\\", u""},
            {u"FTDIBUS\\VID_0403+PID_6001+A50285BI\\0000", u"A50285BI"}, {u"FTDIBUS\\VID_0403+PID_6001+A5", u""},
            {u"FTDIBUS\\VID_0403\\0000", u""}, {u"PCI\\VEN_8086&DEV_9D3D\\3", u""}, {u"usb\\VID_10C4\\0001", u""}};
        for (const auto& [identifier, expected] : table) {
            QVERIFY2(parseSerialNumber(identifier) == expected, qPrintable(QString::fromStdU16String(identifier)));
        }
    }
};

QTEST_APPLESS_MAIN(PortRulesTest)
#include "PortRulesTest.moc"
