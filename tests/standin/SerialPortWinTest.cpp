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
            {allFlags, NOPARITY, ONESTOPBIT, 8, false, false, 0xFFFF80C1, 0, 0},
            {0, ODDPARITY, TWOSTOPBITS, 8, true, false, 0x13, 1, 2},
            {allFlags, MARKPARITY, ONE5STOPBITS, 5, false, true, 0xFFFF90C3, 3, 1},
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

    /// A driver need not make a transfer wait.
    void doneAtOnce()
    {
        SerialPortWin port({.portName = "com15", .baudRate = 1200, .writeTimeoutMs = 60, .readTimeoutMs = 50});
        QVERIFY(port.open());
        setCompletion(win32::Completion::AtOnce);
        QCOMPARE(port.write(reinterpret_cast<const std::uint8_t*>("12345678"), 8), 8U);
        QCOMPARE(line->receive(8, 1000), "12345678");
        win32::takeCalls();

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
        SerialPortWin port(settings);
        for (const char* function :
            {"CreateEventW", "CreateFileW", "GetCommState", "SetCommState", "SetCommTimeouts"}) {
            win32::failCall(function, 1, 4711);
            QVERIFY2(!port.open() && !port.isOpen() && port.errorString() == errorText(4711), function);
        }
        win32::failCall("PurgeComm", 1, 4711);
        QVERIFY(port.open() && port.errorString() == errorText(4711));
        const auto fails = [&port](const char* function, const auto& operation) {
            win32::failCall(function, 1, 4712);
            return !operation() && port.isOpen() && port.errorString() == errorText(4712);
        };
        for (const char* function : {"ReadFile", "WaitForMultipleObjects", "GetOverlappedResult"}) {
            QVERIFY(fails(function, [&] { return port.read(buffer.data(), 8); }));
        }
        QVERIFY(fails("WriteFile", [&] { return port.write(buffer.data(), 1); }));
        line->send("12");
        QTRY_COMPARE(port.bytesAvailable(), 2U);
        // Nothing of the failed transfers is left to the driver.
        QVERIFY(port.read(buffer.data(), 2) == 2 && port.write(buffer.data(), 2) == 2);
        port.close();
        QVERIFY(!port.read(buffer.data(), 1) && port.errorString() == L"The handle is invalid.\r\n");
    }
};

QTEST_GUILESS_MAIN(SerialPortWinTest)
#include "SerialPortWinTest.moc"
