#include "bootloader/BootloaderClient.h"
#include "serial/SerialPortWin.h"
#include "standin/win32/Win32Layer.h"
#include "tests/burn/ScriptedDevice.h"
#include "tools/devicesim/DeviceSim.h"

#include <QTemporaryDir>
#include <QTest>

#include <algorithm>
#include <array>

class BurnWinTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void burns()
    {
        devicesim::DeviceConfig config;
        config.baudRate = 115200;
        config.memory.assign(0x10000, 0x00);
        devicesim::DeviceSim device(config);
        QVERIFY(device.start());
        win32::connectPort("COM15", device.portName());
        const QTemporaryDir folder;
        const QString file =
            writeFirmware(folder.path(), {{0x100, "\x12\x34\x56\x78"}}, config.identity.deviceId, 115200);
        BurnThread burn(
            this, [] { return std::make_shared<BootloaderClient>(std::make_unique<SerialPortWin>(PortSettings())); });
        burn.startBurn("COM15", file);
        QVERIFY(burn.wait(60000));
        QCOMPARE(burn.outcome(), BurnThread::Outcome::Succeeded);
        std::vector<std::uint8_t> expected(0x10000, 0xFF);
        std::ranges::copy(std::array{0x12, 0x34, 0x56, 0x78}, expected.begin() + 0x100);
        QVERIFY(device.memory() == expected && device.report().resets == 1);

        // An adapter that is pulled out neither ends the burn nor holds up its stop.
        const auto received = device.report().bytesReceived;
        burn.startBurn("COM15", file);
        QTRY_VERIFY(device.report().bytesReceived > received);
        device.stop();
        QVERIFY(!burn.wait(1000));
        burn.stopBurn();
        QVERIFY(burn.outcome() == BurnThread::Outcome::Cancelled && win32::openHandles() == 0);
    }
};

QTEST_GUILESS_MAIN(BurnWinTest)
#include "BurnWinTest.moc"
