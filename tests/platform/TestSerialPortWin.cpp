#include "platform/win32/Win32Layer.h"
#include "serial/SerialPortWin.h"

#include <QElapsedTimer>
#include <QTest>

#include <array>
#include <cstring>
#include <thread>

#include <fcntl.h>
#include <stdlib.h>
#include <unistd.h>

using Calls = std::vector<std::string>;

class TestSerialPortWin : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup();

    void callsInOrder();
    void lineSettings_data();
    void lineSettings();
    void portName_data();
    void portName();
    void failedOpen_data();
    void failedOpen();
    void failedTransfer_data();
    void failedTransfer();
    void failedCommands();
    void cancelFromAnotherThread();
    void lineTime();
    void hangUp();

private:
    int farEnd = -1;
    PortSettings settings;
    std::array<std::uint8_t, 1000> buffer{};
};

namespace
{

std::wstring errorText(DWORD code)
{
    return L"Error " + std::to_wstring(code) + L": <unknown error>";
}

std::uint32_t flagBits(const DCB& dcb)
{
    std::uint32_t bits = 0;
    std::memcpy(&bits, reinterpret_cast<const char*>(&dcb) + 8, sizeof bits);
    return bits;
}

} // namespace

void TestSerialPortWin::init()
{
    farEnd = posix_openpt(O_RDWR | O_NOCTTY);
    QVERIFY(farEnd >= 0 && grantpt(farEnd) == 0 && unlockpt(farEnd) == 0);
    win32::reset();
    win32::connectPort("COM15", ptsname(farEnd));
    settings = PortSettings();
    settings.portName = "COM15";
    settings.baudRate = 115200;
}

void TestSerialPortWin::cleanup()
{
    close(farEnd);
    QCOMPARE(win32::openHandles(), std::size_t{0});
}

void TestSerialPortWin::callsInOrder()
{
    settings.readTimeoutMs = 20;
    {
        SerialPortWin port(settings);
        QVERIFY(win32::takeCalls().empty());
        QVERIFY(port.open());
        const Calls opening = {R"(CreateFileW(\\.\COM15, 0xC0000000, 0x0, 0x3, 0x40000000, none))",
            "GetCommState(COM15, 0x1C)", "SetCommState(COM15, 0x1C)", "SetCommTimeouts(COM15)",
            "PurgeComm(COM15, 0xF)"};
        Calls expected(3, "CreateEventW(1, 0, null)");
        expected.insert(expected.end(), opening.begin(), opening.end());
        QCOMPARE(win32::takeCalls(), expected);
        const COMMTIMEOUTS timeouts = win32::lineTimeouts("COM15");
        QCOMPARE(timeouts.ReadTotalTimeoutConstant, 20U);
        QCOMPARE(timeouts.WriteTotalTimeoutConstant, 500U);

        QCOMPARE(port.read(buffer.data(), 5), std::size_t{0});
        QCOMPARE(win32::takeCalls(),
            (Calls{"ResetEvent(event1)", "ReadFile(COM15, 0x5, event1)",
                "WaitForMultipleObjects(event1 event3, 0, 0xFFFFFFFF)", "GetOverlappedResult(COM15, event1, 0)"}));
        QCOMPARE(port.errorString(), errorText(ERROR_IO_PENDING));
        win32::takeCalls();
        QCOMPARE(port.write(buffer.data(), 5), std::size_t{5});
        QCOMPARE(win32::takeCalls(),
            (Calls{"ResetEvent(event2)", "WriteFile(COM15, 0x5, event2)",
                "WaitForMultipleObjects(event2 event3, 0, 0xFFFFFFFF)", "GetOverlappedResult(COM15, event2, 0)"}));

        QVERIFY(port.open());
        expected = {"CancelIo(COM15)", "SetEvent(event3)", "CloseHandle(COM15)", "ResetEvent(event1)",
            "ResetEvent(event2)", "ResetEvent(event3)"};
        expected.insert(expected.end(), opening.begin(), opening.end());
        QCOMPARE(win32::takeCalls(), expected);
    }
    QCOMPARE(win32::takeCalls(), (Calls{"CancelIo(COM15)", "SetEvent(event3)", "CloseHandle(COM15)",
                                     "CloseHandle(event1)", "CloseHandle(event2)", "CloseHandle(event3)"}));
}

void TestSerialPortWin::lineSettings_data()
{
    QTest::addColumn<quint32>("driverFlags");
    QTest::addColumn<int>("parity");
    QTest::addColumn<int>("stopBits");
    QTest::addColumn<int>("dataBits");
    QTest::addColumn<bool>("dtr");
    QTest::addColumn<bool>("rts");
    QTest::addColumn<quint32>("flags");
    QTest::addColumn<int>("dcbParity");
    QTest::addColumn<int>("dcbStopBits");

    QTest::newRow("8N1") << 0U << 0 << 0 << 8 << false << false << 0x1U << 0 << 0;
    QTest::newRow("8N1 over every flag") << ~0U << 0 << 0 << 8 << false << false << 0xFFFF80C1U << 0 << 0;
    QTest::newRow("odd, DTR") << 0U << 1 << 2 << 8 << true << false << 0x13U << 1 << 2;
    QTest::newRow("even, RTS") << 0U << 2 << 0 << 7 << false << true << 0x1003U << 2 << 0;
    QTest::newRow("mark, 1.5 stop bits") << ~0U << 3 << 1 << 5 << true << true << 0xFFFF90D3U << 3 << 1;
    QTest::newRow("space") << 0U << 4 << 0 << 6 << false << false << 0x3U << 4 << 0;
    QTest::newRow("as the driver has them") << 0U << 9 << 9 << 7 << false << false << 0x3U << 2 << 2;
}

void TestSerialPortWin::lineSettings()
{
    QFETCH(quint32, driverFlags);
    QFETCH(int, parity);
    QFETCH(int, stopBits);
    QFETCH(int, dataBits);
    QFETCH(bool, dtr);
    QFETCH(bool, rts);

    DCB driver = win32::lineState("COM15");
    std::memcpy(reinterpret_cast<char*>(&driver) + 8, &driverFlags, sizeof driverFlags);
    driver.StopBits = TWOSTOPBITS;
    driver.XonChar = 0x11;
    win32::setLineState("COM15", driver);
    settings.parity = static_cast<PortParity>(parity);
    settings.stopBits = static_cast<PortStopBits>(stopBits);
    settings.dataBits = static_cast<std::uint8_t>(dataBits);
    settings.dtrEnabled = dtr;
    settings.rtsEnabled = rts;
    SerialPortWin port(settings);
    QVERIFY(port.open());

    const DCB state = win32::lineState("COM15");
    QTEST(flagBits(state), "flags");
    QTEST(int{state.Parity}, "dcbParity");
    QTEST(int{state.StopBits}, "dcbStopBits");
    QCOMPARE(int{state.ByteSize}, dataBits);
    QCOMPARE(state.BaudRate, 115200U);
    QCOMPARE(state.XonChar, char{0x11});
}

void TestSerialPortWin::portName_data()
{
    QTest::addColumn<QByteArray>("name");
    QTest::addColumn<QByteArray>("path");
    QTest::newRow("shorter than the prefix") << QByteArray("a") << QByteArray(R"(\\.\a)");
    QTest::newRow("with the prefix") << QByteArray(R"(\\.\COM7)") << QByteArray(R"(\\.\COM7)");
    QTest::newRow("with the prefix inside") << QByteArray(R"(x\\.\y)") << QByteArray(R"(\\.\x\\.\y)");
    QTest::newRow("signed bytes") << QByteArray("\xE9") << QByteArray(R"(\\.\<0xFFE9>)");
}

void TestSerialPortWin::portName()
{
    QFETCH(QByteArray, name);
    SerialPortWin port(settings);
    port.setPortName(name.toStdString());
    QVERIFY(!port.open());
    QCOMPARE(port.errorString(), std::wstring(L"The system cannot find the file specified.\r\n"));
    const std::string call = win32::takeCalls().at(3);
    QTEST(QByteArray::fromStdString(call.substr(12, call.find(',') - 12)), "path");
}

void TestSerialPortWin::failedOpen_data()
{
    QTest::addColumn<QByteArray>("function");
    QTest::addColumn<int>("nth");
    QTest::addColumn<bool>("opened");
    QTest::newRow("read event") << QByteArray("CreateEventW") << 1 << false;
    QTest::newRow("write event") << QByteArray("CreateEventW") << 2 << false;
    QTest::newRow("cancel event") << QByteArray("CreateEventW") << 3 << false;
    for (const char* function : {"CreateFileW", "GetCommState", "SetCommState", "SetCommTimeouts"}) {
        QTest::newRow(function) << QByteArray(function) << 1 << false;
    }
    QTest::newRow("PurgeComm") << QByteArray("PurgeComm") << 1 << true;
}

void TestSerialPortWin::failedOpen()
{
    QFETCH(QByteArray, function);
    QFETCH(int, nth);
    QFETCH(bool, opened);
    SerialPortWin port(settings);
    win32::failCall(function.toStdString(), nth, 4711);
    QCOMPARE(port.open(), opened);
    QCOMPARE(port.isOpen(), opened);
    QCOMPARE(port.errorString(), errorText(4711));
    SerialPortWin other(settings);
    QCOMPARE(other.open(), !opened);
    other.close();
    QVERIFY(port.open());
}

void TestSerialPortWin::failedTransfer_data()
{
    QTest::addColumn<QByteArray>("function");
    QTest::addColumn<bool>("reads");
    for (const bool reads : {true, false}) {
        for (const char* function :
            {reads ? "ReadFile" : "WriteFile", "WaitForMultipleObjects", "GetOverlappedResult"}) {
            QTest::addRow("%s %s", reads ? "read" : "write", function) << QByteArray(function) << reads;
        }
    }
}

void TestSerialPortWin::failedTransfer()
{
    QFETCH(QByteArray, function);
    QFETCH(bool, reads);
    settings.readTimeoutMs = 50;
    SerialPortWin port(settings);
    const auto transfer = [&](std::uint8_t* data, std::size_t size) {
        return reads ? port.read(data, size) : port.write(data, size);
    };
    QCOMPARE(transfer(buffer.data(), 1), std::size_t{0});
    QCOMPARE(port.errorString(), std::wstring(L"The handle is invalid.\r\n"));
    QVERIFY(port.open());
    win32::failCall(function.toStdString(), 1, 4711);
    QCOMPARE(transfer(buffer.data(), 1), std::size_t{0});
    QCOMPARE(transfer(nullptr, 1) + transfer(buffer.data(), 0), std::size_t{0});
    QCOMPARE(port.errorString(), errorText(4711));
    QVERIFY(port.isOpen());
    // Nothing of the failed transfer is left to the driver.
    QCOMPARE(write(farEnd, "12", 2), ssize_t{2});
    QCOMPARE(transfer(buffer.data(), 2), std::size_t{2});
}

void TestSerialPortWin::failedCommands()
{
    SerialPortWin port(settings);
    QVERIFY(port.purge(true, true) && !port.applySettings() && !port.applyTimeouts());
    QVERIFY(port.open());
    QVERIFY(!port.errorString().empty());
    win32::takeCalls();
    QVERIFY(port.purge(true, false) && port.purge(false, true) && port.purge(true, true) && port.purge(false, false));
    QCOMPARE(win32::takeCalls(), (Calls{"PurgeComm(COM15, 0xA)", "PurgeComm(COM15, 0x5)", "PurgeComm(COM15, 0xF)"}));
    for (const char* function : {"PurgeComm", "GetCommState", "SetCommState", "SetCommTimeouts", "ClearCommError"}) {
        win32::failCall(function, 1, 4711);
    }
    QVERIFY(!port.purge(true, false));
    QCOMPARE(port.errorString(), errorText(4711));
    QVERIFY(!port.applySettings() && !port.applySettings() && port.applySettings());
    QVERIFY(!port.applyTimeouts() && port.applyTimeouts());
    QCOMPARE(write(farEnd, "12", 2), ssize_t{2});
    QCOMPARE(port.bytesAvailable(), 0U);
    QTRY_COMPARE(port.bytesAvailable(), 2U);
}

void TestSerialPortWin::cancelFromAnotherThread()
{
    settings.readTimeoutMs = 60000;
    SerialPortWin port(settings);
    QVERIFY(port.open());
    win32::takeCalls();
    Calls calls;
    std::thread other([&] {
        // CancelIo of this thread alone would leave the read to its limit.
        while (calls.size() < 3) {
            const Calls more = win32::takeCalls();
            calls.insert(calls.end(), more.begin(), more.end());
        }
        port.cancel();
    });
    QCOMPARE(port.read(buffer.data(), 1), std::size_t{0});
    other.join();
    QCOMPARE(win32::takeCalls(), (Calls{"CancelIo(COM15)", "SetEvent(event3)", "CancelIo(COM15)"}));
    QCOMPARE(port.errorString(), errorText(ERROR_IO_PENDING));
}

void TestSerialPortWin::lineTime()
{
    settings.baudRate = 9600;
    settings.writeTimeoutMs = 200;
    SerialPortWin port(settings);
    QVERIFY(port.open());
    QElapsedTimer timer;
    timer.start();
    QCOMPARE(port.write(buffer.data(), 96), std::size_t{96});
    QVERIFY(timer.elapsed() >= 99);
    const std::size_t sent = port.write(buffer.data(), 1000);
    QVERIFY(sent > 0 && sent <= 192);
}

void TestSerialPortWin::hangUp()
{
    SerialPortWin port(settings);
    QVERIFY(port.open());
    close(std::exchange(farEnd, -1));
    for (int i = 0; i < 3; ++i) {
        QElapsedTimer timer;
        timer.start();
        QCOMPARE(port.read(buffer.data(), 1), std::size_t{0});
        QVERIFY(timer.elapsed() >= 99);
    }
}

QTEST_GUILESS_MAIN(TestSerialPortWin)
#include "TestSerialPortWin.moc"
