#include "serial/SerialPortWin.h"

#include "standin/win32/Win32Layer.h"
#include "tests/support/PtyLine.h"

#include <QTest>

#include <bit>
#include <cstring>
#include <ctime>
#include <thread>

#include <sys/syscall.h>
#include <unistd.h>

namespace
{

std::wstring errorText(DWORD code)
{
    return L"Error " + std::to_wstring(code) + L": <unknown error>";
}

/// Seconds by which the clock of the machine is wrong at the next look, and right again at the one after it.
long clockError = 0;

/// The calls since the last time.
QByteArray calls()
{
    QByteArray text;
    for (const std::string& call : win32::takeCalls()) {
        text += call.c_str() + QByteArray("; ");
    }
    return text;
}

} // namespace

// Stands before that of the C library in this executable.
extern "C" int clock_gettime(clockid_t clock, timespec* time) noexcept
{
    const auto result = ::syscall(SYS_clock_gettime, clock, time);
    if (clock == CLOCK_REALTIME) {
        time->tv_sec += std::exchange(clockError, 0);
    }
    return static_cast<int>(result);
}

/// What the suite for every port can't know: the calls, the line settings bit by bit, the error codes.
class SerialPortWinTest : public QObject
{
    Q_OBJECT

    std::unique_ptr<PtyLine> line;
    PortSettings settings;
    std::array<std::uint8_t, 8> buffer{};

private Q_SLOTS:
    void init()
    {
        line = std::make_unique<PtyLine>();
        win32::reset();
        win32::connectPort("COM15", line->portName());
        settings = {.portName = "COM15", .baudRate = 115200, .writeTimeoutMs = 60, .readTimeoutMs = 50};
    }
    void cleanup() { QCOMPARE(win32::openHandles(), 0U); }

    void callsInOrder()
    {
        const QByteArray opening = R"(CreateFileW(\\.\COM15, 0xC0000000, 0x0, 0x3, 0x40000000, none); )"
                                   "GetCommState(COM15, 0x1C); SetCommState(COM15, 0x1C); SetCommTimeouts(COM15); "
                                   "PurgeComm(COM15, 0xF); ";
        const QByteArray closing = "CancelIo(COM15); SetEvent(event3); CloseHandle(COM15); ";
        {
            SerialPortWin port(settings);
            QVERIFY(port.open());
            QCOMPARE(calls(), QByteArray("CreateEventW(1, 0, null); ").repeated(3) + opening);
            QVERIFY(port.open());
            QCOMPARE(calls(), closing + "ResetEvent(event1); ResetEvent(event2); ResetEvent(event3); " + opening);
            const COMMTIMEOUTS expected = {0, 0, 50, 0, 60}, limits = win32::lineTimeouts("COM15");
            QCOMPARE(std::memcmp(&limits, &expected, sizeof limits), 0);
            QVERIFY(port.read(buffer.data(), 5) == 0 && port.errorString() == errorText(ERROR_IO_PENDING));
            QCOMPARE(calls(),
                "ResetEvent(event1); ReadFile(COM15, 0x5, event1); WaitForMultipleObjects(event1 event3, "
                "0, 0xFFFFFFFF); GetOverlappedResult(COM15, event1, 0); FormatMessageW(0x1300, 0x3E5, 0x0); ");
            QCOMPARE(port.write(buffer.data(), 5), 5U);
            QCOMPARE(calls(),
                "ResetEvent(event2); WriteFile(COM15, 0x5, event2); WaitForMultipleObjects(event2 event3, "
                "0, 0xFFFFFFFF); GetOverlappedResult(COM15, event2, 0); ");
            port.cancel();
            QCOMPARE(port.read(buffer.data(), 5), 0U);
            QCOMPARE(calls(), "CancelIo(COM15); SetEvent(event3); ResetEvent(event1); ReadFile(COM15, 0x5, event1); "
                              "WaitForMultipleObjects(event1 event3, 0, 0xFFFFFFFF); CancelIo(COM15); "
                              "WaitForMultipleObjects(event1, 0, 0xFFFFFFFF); ");
            QVERIFY(port.purge(true, false) && port.purge(false, true) && port.purge(true, true));
            QCOMPARE(calls(), "PurgeComm(COM15, 0xA); PurgeComm(COM15, 0x5); PurgeComm(COM15, 0xF); ");
        }
        QCOMPARE(calls(), closing + "CloseHandle(event1); CloseHandle(event2); CloseHandle(event3); ");
    }

    void lineSettings()
    {
        const struct {
            std::uint32_t driverFlags, parity, stopBits, dataBits, dtr, rts, flags, dcbParity, dcbStopBits;
        } rows[] = {{0, 0, 0, 8, 0, 0, 0x1, 0, 0}, {~0U, 0, 0, 8, 0, 0, 0xFFFF80C1, 0, 0},
            {0, 1, 2, 8, 1, 0, 0x13, 1, 2}, {0, 2, 0, 7, 0, 1, 0x1003, 2, 0}, {~0U, 3, 1, 5, 1, 1, 0xFFFF90D3, 3, 1},
            {0, 4, 0, 6, 0, 0, 0x3, 4, 0}, {0, 9, 9, 7, 0, 0, 0x3, 2, 2}}; // the last one leaves the driver's
        for (const auto& row : rows) {
            using Words = std::array<std::uint32_t, sizeof(DCB) / 4>;
            const Words driver = {28, 9600, row.driverFlags, 1, 2 << 24 | 6 << 16, 2 | 0x1311 << 8, 3};
            win32::setLineState("COM15", std::bit_cast<DCB>(driver));
            SerialPortWin port({"COM15", 115200, std::uint8_t(row.dataBits), PortParity(row.parity),
                PortStopBits(row.stopBits), row.dtr != 0, row.rts != 0, 60, 50});
            QVERIFY(port.open());
            const Words expected = {
                28, 115200, row.flags, 1, row.dcbParity << 24 | row.dataBits << 16, row.dcbStopBits | 0x1311 << 8, 3};
            QVERIFY2(std::bit_cast<Words>(win32::lineState("COM15")) == expected, QByteArray::number(row.flags, 16));
        }
    }

    void portName()
    {
        const std::pair<const char*, const char*> rows[] = {{"a", R"(\\.\a)"}, {R"(\\.\COM7)", R"(\\.\COM7)"},
            {R"(x\\.\y)", R"(\\.\x\\.\y)"}, {"\xE9", R"(\\.\<0xFFE9>)"}};
        for (const auto& [name, path] : rows) {
            SerialPortWin port({name});
            QVERIFY(!port.open() && calls().contains(QByteArray("CreateFileW(") + path + ','));
            QCOMPARE(port.errorString(), L"The system cannot find the file specified.\r\n");
        }
    }

    /// A driver need not make a transfer wait.
    void doneAtOnce()
    {
        SerialPortWin port({.portName = "com15", .baudRate = 1200, .writeTimeoutMs = 60, .readTimeoutMs = 50});
        QVERIFY(port.open());
        win32::setCompletion("COM15", win32::Completion::AtOnce);
        calls();
        QCOMPARE(port.write(reinterpret_cast<const std::uint8_t*>("12345678"), 8), 8U);
        QCOMPARE(calls(), "ResetEvent(event2); WriteFile(COM15, 0x8, event2); ");
        QCOMPARE(line->receive(8, 1000), "12345678");

        win32::setCompletion("COM15", win32::Completion::Nothing);
        clockError = -3600;
        QElapsedTimer time;
        time.start();
        QCOMPARE(port.read(buffer.data(), 5) + port.write(buffer.data(), 5), 0U);
        QVERIFY(time.elapsed() >= 100 && calls().count("File(") == 2);
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
        int event = 0;
        for (const char* function : {"CreateEventW", "CreateEventW", "CreateEventW", "CreateFileW", "GetCommState",
                 "SetCommState", "SetCommTimeouts", "PurgeComm"}) {
            const bool opens = qstrcmp(function, "PurgeComm") == 0;
            SerialPortWin port(settings);
            win32::failCall(function, event < 3 ? ++event : 1, 4711);
            QVERIFY2(port.open() == opens && port.isOpen() == opens, function);
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
        DWORD moved = 5;
        OVERLAPPED overlapped = {};
        QVERIFY(!WriteFile(nullptr, buffer.data(), 1, &moved, &overlapped) && moved == 0);
        port.close();
        QVERIFY(!port.read(buffer.data(), 1) && port.errorString() == L"The handle is invalid.\r\n");
    }
};

QTEST_GUILESS_MAIN(SerialPortWinTest)
#include "SerialPortWinTest.moc"
