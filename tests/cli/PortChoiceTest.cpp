#include "cli/PortChoice.h"

#include <QFile>
#include <QTemporaryDir>
#include <QTest>

class PortChoiceTest : public QObject
{
    Q_OBJECT

    const std::vector<PortInfo> machine = {
        {L"/dev/ttyUSB0", L"USB adapter", L"", L"A:1", 0x0403, 0x6001},
        {L"/dev/ttyUSB1", L"USB adapter", L"", L"B2", 0x0403, 0x6001},
        {L"/dev/ttyACM0", L"USB board", L"", L"", 0x2341, 0x0043},
        {L"/dev/ttyS0", L"", L"", L"", 0, 0},
    };

private Q_SLOTS:
    void chooses_data()
    {
        QTest::addColumn<QStringList>("given");
        QTest::addColumn<QStringList>("names");
        QTest::addColumn<QString>("problem");

        const auto row = [](const char* name, const QStringList& given, const QStringList& names,
                             const QString& problem = {}) { QTest::newRow(name) << given << names << problem; };
        row("names", {"/dev/ttyS0", "/dev/ttyUSB1"}, {"/dev/ttyS0", "/dev/ttyUSB1 B2"});
        row("unlisted name", {"/dev/ttyXY"}, {"/dev/ttyXY"});
        row("adapter", {"usb:2341:43"}, {"/dev/ttyACM0"});
        row("adapter by serial number", {"usb:0403:6001:A:1", "usb:0403:6001:B2"},
            {"/dev/ttyUSB0 A:1", "/dev/ttyUSB1 B2"});
        row("several fit", {"usb:0403:6001"}, {},
            R"(several ports fit "usb:0403:6001": "/dev/ttyUSB0", "/dev/ttyUSB1")");
        row("none with this serial number", {"usb:0403:6001:b2"}, {}, R"(no port fits "usb:0403:6001:b2")");
        const QString form = " is not usb:VID:PID or usb:VID:PID:SERIAL, with ids in hexadecimal digits";
        for (const QString text : {"usb:", "usb:0403", "usb:0403:", "usb:10403:6001", "usb:x:y", "usb:0403:6001:"}) {
            row(text.toLatin1(), {text}, {}, '"' + text + '"' + form);
        }
        row("empty", {""}, {}, "the name of a port is empty");
        row("twice, once as an adapter", {"usb:2341:0043", "/dev/ttyACM0"}, {},
            R"("usb:2341:0043" and "/dev/ttyACM0" are the same port)");
    }

    void chooses()
    {
        QFETCH(const QStringList, given);
        const PortChoices choices = choosePorts(given, machine);
        QTEST(choices.problem, "problem");
        QStringList names;
        for (const PortChoice& port : choices.ports) {
            names << (port.name + ' ' + port.adapterSerial).trimmed();
        }
        if (choices.problem.isEmpty()) {
            QTEST(names, "names");
        }
    }

    void links()
    {
        const QTemporaryDir folder;
        const QString link = folder.filePath("link");
        QVERIFY(QFile::link("/dev/null", link));
        QVERIFY(!choosePorts({link, "/dev/null"}, {}).problem.isEmpty());
        const std::vector<PortInfo> available = {{L"/dev/null", L"", L"", L"S7", 1, 2}};
        QCOMPARE(choosePorts({link}, available).ports.at(0).adapterSerial, "S7");
    }
};

QTEST_GUILESS_MAIN(PortChoiceTest)
#include "PortChoiceTest.moc"
