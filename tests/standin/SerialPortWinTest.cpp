#include "serial/SerialPortWin.h"

#include "standin/win32/Win32Layer.h"
#include "tests/support/PtyLine.h"

#include <QTest>

#include <bit>
#include <cstring>
#include <thread>

namespace
{

std::wstring errorText(DWORD code)
{
    return L"Error " + std::to_wstring(code) + L": <unknown error>";
}

} // namespace

/// What the suite for every port can't know: the line settings bit by bit, the error codes, what drivers may do.
class SerialPortWinTest : public QObject
{
    Q_OBJECT

    std::unique_ptr<PtyLine> line;
    PortSettings settings;
    std::array<std::uint8_t, 8> buffer{};

    static void setCompletion(win32::Completion completion)
    {
        win32::PortDevice device = win32::port("COM15");
        device.completion = completion;
        win32::setPort("COM15", device);
    }

private Q_SLOTS:
    void init()
    {
        line = std::make_unique<PtyLine>();
        win32::reset();
        win32::connectPort("COM15", line->portName());
        settings = {.portName = "COM15", .baudRate = 115200, .writeTimeoutMs = 60, .readTimeoutMs = 50};
    }
    void cleanup() { QCOMPARE(win32::openHandles(), 0U); }

    void opensAgain()
    {
        SerialPortWin port(settings);
        for (int i = 0; i < 2; ++i) {
            QVERIFY(port.open());
            QCOMPARE(win32::openHandles(), 4U); // the port and its events
            const COMMTIMEOUTS expected = {0, 0, 50, 0, 60}, limits = win32::port("COM15").timeouts;
            QCOMPARE(std::memcmp(&limits, &expected, sizeof limits), 0);
            QVERIFY(port.read(buffer.data(), 5) == 0 && port.errorString() == errorText(ERROR_IO_PENDING));
        }
    }

    void lineSettings()
    {
        constexpr std::uint32_t allFlags = 0xFFFFFFFF;
        // Of the flags only DSR sensitivity, TX continue on XOFF and the reserved bits stay: 0xFFFF80C0. An unknown
        // parity or number of stop bits leaves the driver's, which are 2 and 2.
        const struct {
            std::uint32_t driverFlags, parity, stopBits, dataBits;
            bool dtr, rts;
            std::uint32_t flags, dcbParity, dcbStopBits;
        } rows[] = {
            {0, NOPARITY, ONESTOPBIT, 8, false, false, 0x1, 0, 0},
            {allFlags, NOPARITY, ONESTOPBIT, 8, false, false, 0xFFFF80C1, 0, 0},
            {0, ODDPARITY, TWOSTOPBITS, 8, true, false, 0x13, 1, 2},
            {0, EVENPARITY, ONESTOPBIT, 7, false, true, 0x1003, 2, 0},
            {allFlags, MARKPARITY, ONE5STOPBITS, 5, true, true, 0xFFFF90D3, 3, 1},
            {0, SPACEPARITY, ONESTOPBIT, 6, false, false, 0x3, 4, 0},
            {0, 9, 9, 7, false, false, 0x3, 2, 2},
        };
        for (const auto& row : rows) {
            using Words = std::array<std::uint32_t, sizeof(DCB) / 4>;
            const Words driver = {28, 9600, row.driverFlags, 1, 2 << 24 | 6 << 16, 2 | 0x1311 << 8, 3};
            win32::PortDevice device = win32::port("COM15");
            device.state = std::bit_cast<DCB>(driver);
            win32::setPort("COM15", device);
            SerialPortWin port({"COM15", 115200, std::uint8_t(row.dataBits), PortParity(row.parity),
                PortStopBits(row.stopBits), row.dtr, row.rts, 60, 50});
            QVERIFY(port.open());
            const Words expected = {
                28, 115200, row.flags, 1, row.dcbParity << 24 | row.dataBits << 16, row.dcbStopBits | 0x1311 << 8, 3};
            QVERIFY2(std::bit_cast<Words>(win32::port("COM15").state) == expected, QByteArray::number(row.flags, 16));
        }
    }

    void portName()
    {
        SerialPortWin port({"a"});
        QVERIFY(!port.open());
        QCOMPARE(port.errorString(), L"The system cannot find the file specified.\r\n");
        // Case does not count.
        win32::connectPort("A", line->portName());
        QVERIFY(port.open());
    }

    /// A driver need not make a transfer wait.
    void doneAtOnce()
    {
        SerialPortWin port({.portName = "com15", .baudRate = 1200, .writeTimeoutMs = 60, .readTimeoutMs = 50});
        QVERIFY(port.open());
        setCompletion(win32::Completion::AtOnce);
        win32::takeCalls();
        QCOMPARE(port.write(reinterpret_cast<const std::uint8_t*>("12345678"), 8), 8U);
        QVERIFY(win32::takeCalls() == std::vector<std::string>({"ResetEvent", "WriteFile"}));
        QCOMPARE(line->receive(8, 1000), "12345678");

        setCompletion(win32::Completion::Nothing);
        QElapsedTimer time;
        time.start();
        QCOMPARE(port.read(buffer.data(), 5) + port.write(buffer.data(), 5), 0U);
        const std::vector<std::string> calls = win32::takeCalls();
        QVERIFY(time.elapsed() >= 100);
        QCOMPARE(std::ranges::count(calls, "ReadFile") + std::ranges::count(calls, "WriteFile"), 2);
        port.setTimeouts(20000, 20000);
        std::jthread other([&port] {
            QThread::msleep(50);
            port.cancel();
        });
        QCOMPARE(port.read(buffer.data(), 5) + port.write(buffer.data(), 5), 0U);
        QVERIFY(time.elapsed() < 8000);
    }

    void failures()
    {
        const struct {
            const char* function;
            int nth;
            bool opens;
        } rows[] = {
            {"CreateEventW", 1, false},
            {"CreateEventW", 2, false},
            {"CreateEventW", 3, false},
            {"CreateFileW", 1, false},
            {"GetCommState", 1, false},
            {"SetCommState", 1, false},
            {"SetCommTimeouts", 1, false},
            {"PurgeComm", 1, true},
        };
        for (const auto& row : rows) {
            SerialPortWin port(settings);
            win32::failCall(row.function, row.nth, 4711);
            QVERIFY2(port.open() == row.opens && port.isOpen() == row.opens, row.function);
            QVERIFY(port.errorString() == errorText(4711) && port.open());
        }
        SerialPortWin port(settings);
        QVERIFY(port.open());
        const auto fails = [&port](const char* function, const auto& operation) {
            win32::failCall(function, 1, 4712);
            return !operation() && port.isOpen() && port.errorString() == errorText(4712);
        };
        for (const char* function : {"ReadFile", "WaitForMultipleObjects", "GetOverlappedResult"}) {
            QVERIFY(fails(function, [&] { return port.read(buffer.data(), 8); }));
        }
        for (const char* function : {"WriteFile", "WaitForMultipleObjects", "GetOverlappedResult"}) {
            QVERIFY(fails(function, [&] { return port.write(buffer.data(), 1); }));
        }
        for (const char* function : {"GetCommState", "SetCommState"}) {
            QVERIFY(fails(function, [&] { return port.applySettings(); }));
        }
        QVERIFY(fails("SetCommTimeouts", [&] { return port.applyTimeouts(); }));
        QVERIFY(fails("PurgeComm", [&] { return port.purge(true, false); }));
        line->send("12");
        QTRY_COMPARE(port.bytesAvailable(), 2U);
        win32::failCall("ClearCommError", 1, 4713);
        QVERIFY(port.bytesAvailable() == 0 && port.errorString() == errorText(4712));
        // Nothing of the failed transfers is left to the driver.
        QVERIFY(port.read(buffer.data(), 2) == 2 && port.write(buffer.data(), 2) == 2);
        line->hangUp();
        QVERIFY(!port.applyTimeouts());
        port.close();
        QVERIFY(!port.read(buffer.data(), 1) && port.errorString() == L"The handle is invalid.\r\n");
    }
};

QTEST_GUILESS_MAIN(SerialPortWinTest)
#include "SerialPortWinTest.moc"
