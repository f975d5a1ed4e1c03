#include "bootloader/BootloaderClient.h"
#include "tools/devicesim/DeviceSim.h"

#include <QDeadlineTimer>
#include <QTest>

#include <numeric>

using Bytes = std::vector<std::uint8_t>;

/// The client over the platform's port against a simulated device, through all the steps of programming.
class BootloaderDeviceTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void program_data()
    {
        QTest::addColumn<int>("blocks");
        for (const auto& [line, blocks] : {std::pair("9600", 2), {"57600", 8}, {"57600 echo", 4}, {"921600", 64}}) {
            QTest::newRow(line) << blocks;
        }
    }

    void program()
    {
        QFETCH(const int, blocks);
        const QByteArrayList row = QByteArray(QTest::currentDataTag()).split(' ');
        devicesim::DeviceConfig config;
        config.baudRate = row[0].toUInt();
        config.echo = row.contains("echo");
        config.memory.assign(0x10000, 0x00);
        devicesim::DeviceSim device(config);
        QVERIFY2(device.start(), device.errorString().c_str());
        BootloaderClient client;
        client.echoOn = config.echo;
        QVERIFY(client.open(device.portName(), config.baudRate));

        // A machine under load can hold up either end for longer than a reply may take, and what is left of a damaged
        // reply looks like several answers: a step is tried again for a while.
        const auto eventually = [](const auto& step) {
            const QDeadlineTimer limit(10000);
            bool done = step();
            while (!done && !limit.hasExpired()) {
                done = step();
            }
            return done;
        };
        const auto reports = [&](bool blank) {
            const BootAnswer answer = client.blankCheck(0x3100, 512);
            return answer.answered && answer.blank == blank;
        };
        QVERIFY(eventually([&] { return client.readVersion(); }));
        QCOMPARE(client.bootloaderVersion, BootVersion::fromWord(config.identity.bootloaderVersion));
        QCOMPARE(client.firmwareVersion, BootVersion::fromWord(config.identity.firmwareVersion));
        QCOMPARE(client.deviceId, config.identity.deviceId);
        QVERIFY(client.ping() && eventually([&] { return reports(false); }));
        QVERIFY(eventually([&] { return client.eraseMemory(); }) && eventually([&] { return reports(true); }));

        Bytes expected(0x10000, 0xFF);
        for (int address = 0x3100; address < 0x3100 + blocks * 512; address += 512) {
            Bytes data(512);
            std::iota(data.begin(), data.end(), static_cast<std::uint8_t>(address / 512));
            std::copy(data.begin(), data.end(), expected.begin() + address);
            QVERIFY(eventually([&] { return client.writeBlock(std::uint32_t(address), data); }));
            QVERIFY(eventually([&] { return client.readBlock(std::uint32_t(address), 512) == data; }));
        }
        QVERIFY(device.memory() == expected);
        const auto isReset = [&] { return device.report().resets > 0; };
        QVERIFY(eventually([&] { return client.resetDevice(0) && QTest::qWaitFor(isReset, 1000); }));
    }
};

QTEST_GUILESS_MAIN(BootloaderDeviceTest)
#include "BootloaderDeviceTest.moc"
