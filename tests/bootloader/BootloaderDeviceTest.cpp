#include "bootloader/BootloaderClient.h"
#include "tools/devicesim/DeviceSim.h"

#include <QTest>

#include <numeric>

using Bytes = std::vector<std::uint8_t>;

/// The client over the platform's port against a simulated device, through all the steps of programming.
class BootloaderDeviceTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void program_data();
    void program();
};

void BootloaderDeviceTest::program_data()
{
    QTest::addColumn<quint32>("baudRate");
    QTest::addColumn<bool>("echo");
    QTest::addColumn<int>("blocks");
    QTest::newRow("9600") << 9600U << false << 2;
    QTest::newRow("57600") << 57600U << false << 8;
    QTest::newRow("57600 with echo") << 57600U << true << 4;
    QTest::newRow("921600") << 921600U << false << 64;
}

void BootloaderDeviceTest::program()
{
    QFETCH(const quint32, baudRate);
    QFETCH(const bool, echo);
    QFETCH(const int, blocks);
    devicesim::DeviceConfig config;
    config.baudRate = baudRate;
    config.echo = echo;
    config.memory.assign(0x10000, 0x00);
    devicesim::DeviceSim device(config);
    QVERIFY2(device.start(), device.errorString().c_str());
    BootloaderClient client;
    client.echoOn = echo;
    QVERIFY(client.open(device.portName(), baudRate));

    // A machine under load can hold up either end for longer than a reply may take, so each step may be tried again.
    const auto eventually = [&](const auto& step) {
        for (int attempt = 0; attempt < 5; ++attempt, client.resynchronise()) {
            if (step())
                return true;
        }
        return false;
    };
    const auto reports = [&](bool blank) {
        const BootAnswer answer = client.blankCheck(0x3100, 512);
        return answer.answered && answer.blank == blank;
    };
    QVERIFY(eventually([&] { return client.readVersion(); }));
    QCOMPARE(client.bootloaderVersion, BootVersion::fromWord(config.identity.bootloaderVersion));
    QCOMPARE(client.firmwareVersion, BootVersion::fromWord(config.identity.firmwareVersion));
    QCOMPARE(client.deviceId, config.identity.deviceId);
    client.ping();
    QVERIFY(eventually([&] { return reports(false); }));
    QVERIFY(eventually([&] { return client.eraseMemory(); }));
    QVERIFY(eventually([&] { return reports(true); }));

    Bytes expected(0x10000, 0xFF);
    for (int block = 0; block < blocks; ++block) {
        const auto address = static_cast<std::uint32_t>(0x3100 + block * 512);
        Bytes data(512);
        std::iota(data.begin(), data.end(), static_cast<std::uint8_t>(block + 1));
        std::copy(data.begin(), data.end(), expected.begin() + address);
        QVERIFY(eventually([&] { return client.writeBlock(address, data); }));
        QVERIFY(eventually([&] { return client.readBlock(address, 512) == data; }));
    }
    QVERIFY(device.memory() == expected);
    QVERIFY(eventually([&] { return client.resetDevice(0) && device.waitForResets(1, std::chrono::seconds(1)); }));
}

QTEST_GUILESS_MAIN(BootloaderDeviceTest)
#include "BootloaderDeviceTest.moc"
