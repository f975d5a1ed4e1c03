#include "tests/serial/SerialPortContract.h"

#include <QProcess>
#include <QRandomGenerator>
#include <QtTest>

#include <atomic>
#include <cstdio>
#include <thread>

namespace
{

// A limit that no call waits out, and the time by which it has ended therefore.
constexpr std::uint32_t longLimit = 20000;
constexpr int early = 8000;
const char* const holdOption = "--hold";

QByteArray pattern(qsizetype size)
{
    QByteArray data(size, 0);
    for (qsizetype i = 0; i < size; ++i)
        data[i] = static_cast<char>(i * 7 + i / 256);
    return data;
}

qsizetype write(SerialPort& port, const QByteArray& data)
{
    return qsizetype(port.write(reinterpret_cast<const std::uint8_t*>(data.data()), std::size_t(data.size())));
}

QByteArray read(SerialPort& port, qsizetype size)
{
    QByteArray data(size, 0);
    return data.first(qsizetype(port.read(reinterpret_cast<std::uint8_t*>(data.data()), std::size_t(size))));
}

/// A null-modem line between two real ports.
class RealLine : public TestLine
{
public:
    RealLine(std::string nearName, std::unique_ptr<SerialPort> farPort)
        : name(std::move(nearName))
        , farEnd(std::move(farPort))
    {
        if (!farEnd->open())
            qFatal("The far end: %ls", farEnd->errorString().c_str());
    }
    std::string portName() const override { return name; }
    void send(const QByteArray& data) override { write(*farEnd, data); }
    QByteArray receive(qsizetype size, int limitMs) override
    {
        farEnd->setTimeouts(longLimit, std::uint32_t(limitMs));
        return read(*farEnd, size);
    }
    void setBaudRate(std::uint32_t rate) override { farEnd->setBaudRate(rate); }

private:
    std::string name;
    std::unique_ptr<SerialPort> farEnd;
};

enum class Event { None, Drip, Cancel, HangUp, HangUpAndCancel };

/// One `read` or `write`, and what has to come of it.
struct Call {
    const char* name;
    bool writes;
    std::uint32_t baudRate;
    int sent; // from the far end, before the call
    int size;
    std::uint32_t limit;
    Event event; // while the call is under way
    int least;   // result
    int most;
    double lasts; // milliseconds at least; every call ends early
};

constexpr Call calls[] = {
    {"read on a silent line", false, 57600, 0, 1, 200, Event::None, 0, 0, 200},
    {"read of too much", false, 57600, 40, 100, 200, Event::None, 40, 40, 200},
    {"read of what is there", false, 57600, 5, 5, longLimit, Event::None, 5, 5, 0},
    {"read of a part", false, 57600, 700, 600, longLimit, Event::None, 600, 600, 0},
    {"read of byte after byte", false, 57600, 0, 1000, 300, Event::Drip, 1, 999, 300},
    {"read, cancelled", false, 57600, 3, 9, longLimit, Event::Cancel, 0, 0, 0},
    {"read, hung up", false, 57600, 0, 9, 300, Event::HangUp, 0, 0, 300},
    {"read, hung up, cancelled", false, 57600, 0, 9, longLimit, Event::HangUpAndCancel, 0, 0, 100},
    {"write at a low rate", true, 9600, 0, 64, longLimit, Event::None, 64, 64, 66.67},
    {"write of a block", true, 57600, 0, 520, longLimit, Event::None, 520, 520, 90.28},
    {"write at an odd rate", true, 12345, 0, 100, longLimit, Event::None, 100, 100, 81.00},
    {"write at a high rate", true, 250000, 0, 4000, longLimit, Event::None, 4000, 4000, 160.00},
    {"write of too much", true, 1200, 0, 1000, 300, Event::None, 20, 999, 300},
    {"write to nobody", true, 115200, 0, 200000, 300, Event::None, 0, 199999, 300},
    {"write, cancelled", true, 57600, 0, 200000, longLimit, Event::Cancel, 0, 0, 0},
    {"write, hung up", true, 57600, 0, 200000, 300, Event::HangUp, 0, 0, 300},
    {"write, hung up, cancelled", true, 57600, 0, 200000, longLimit, Event::HangUpAndCancel, 0, 0, 100},
};

} // namespace

class SerialPortContract : public QObject
{
    Q_OBJECT

public:
    ContractSubject subject;
    bool onRealPorts = false;
    std::unique_ptr<TestLine> line;
    std::unique_ptr<SerialPort> port;

    std::unique_ptr<SerialPort> makePort(const std::string& name) const
    {
        PortSettings settings;
        settings.portName = name;
        return subject.makePort(settings);
    }
    bool open(std::uint32_t limit, std::uint32_t baudRate = 57600)
    {
        line->setBaudRate(baudRate);
        port->setBaudRate(baudRate);
        port->setTimeouts(limit, limit);
        return port->open();
    }
    void happen(Event event, const std::atomic_bool& over)
    {
        for (; event == Event::Drip && !over; QThread::msleep(20))
            line->send("x");
        if (event >= Event::Cancel)
            QThread::msleep(50);
        if (event >= Event::HangUp)
            line->hangUp();
        if (event == Event::HangUpAndCancel)
            QThread::msleep(50);
        if (event == Event::Cancel || event == Event::HangUpAndCancel)
            port->cancel();
    }

private Q_SLOTS:
    void init()
    {
        const QByteArrayList names = qgetenv("TAVIMORA_TEST_PORTS").split(',');
        onRealPorts = names.size() == 2;
        line = onRealPorts ? std::make_unique<RealLine>(names[0].toStdString(), makePort(names[1].toStdString()))
                           : subject.makeLine();
        port = makePort(line->portName());
    }
    void cleanup()
    {
        port.reset();
        line.reset();
    }

    void callsEnd_data()
    {
        QTest::addColumn<Call>("call");
        for (const Call& call : calls)
            QTest::newRow(call.name) << call;
    }
    void callsEnd()
    {
        QFETCH(Call, call);
        if (onRealPorts && call.event >= Event::HangUp)
            QSKIP("Nobody pulls the cable");
        QVERIFY(open(call.limit, call.baudRate));
        line->send(pattern(call.sent));
        const QByteArray output = pattern(call.size);
        QByteArray input;
        qsizetype count = 0;
        const auto attempt = [&] {
            QElapsedTimer time;
            time.start();
            count = call.writes ? write(*port, output) : (input = read(*port, call.size)).size();
            return double(time.nsecsElapsed()) / 1e6;
        };
        std::atomic_bool over = false;
        std::thread other([&] { happen(call.event, over); });
        const double lasted = attempt();
        over = true;
        other.join();
        // The clocks of limits and of tests need not tick alike.
        const double lasts = call.limit == longLimit ? call.lasts : call.lasts - 20;
        const QByteArray result = QByteArray::number(count) + " bytes, " + QByteArray::number(lasted) + " ms";
        QVERIFY2(count >= call.least && count <= call.most, result);
        QVERIFY2(lasted < early && (lasted >= lasts || (call.writes && !subject.writeTakesLineTime)), result);
        QVERIFY(port->isOpen());
        if (call.event >= Event::Cancel) {
            const double again = attempt();
            QCOMPARE(count, 0);
            QVERIFY(again < early && (again >= lasts || call.event != Event::HangUp));
        } else if (!call.writes && call.event == Event::None) {
            QCOMPARE(input, pattern(call.sent).first(call.most));
        } else if (call.writes) {
            const bool complete = count == call.size;
            const QByteArray arrived = line->receive(call.size, complete ? early : 300);
            QVERIFY(output.startsWith(arrived) && (arrived.size() == call.size || !complete));
            // What was not sent within the limit never is.
            port->setTimeouts(longLimit, longLimit);
            QCOMPARE(write(*port, "next"), 4);
            QCOMPARE(line->receive(4, early), "next");
        }
    }

    void emptyCallsAndClosedPort()
    {
        const std::wstring before = port->errorString();
        std::uint8_t byte = 0x5A;
        for (const bool opened : {false, true}) {
            QCOMPARE(opened && open(longLimit), opened);
            QCOMPARE(
                port->read(nullptr, 5) + port->read(&byte, 0) + port->write(nullptr, 5) + port->write(&byte, 0), 0U);
            QVERIFY(byte == 0x5A && port->errorString() == before);
            QCOMPARE(port->isOpen() && port->applySettings() && port->applyTimeouts(), opened);
        }
        for (int i = 0; i < 2; ++i)
            port->close();
        QCOMPARE(read(*port, 1).size() + write(*port, "x"), 0);
        QVERIFY(port->errorString() != before);
        QVERIFY(!port->isOpen() && !port->applySettings() && !port->applyTimeouts());
        QVERIFY(port->purge(true, true) && port->bytesAvailable() == 0);
    }

    void refusesToOpen()
    {
        for (const std::string& name : {std::string(), std::string("TAVIMORA99"), subject.notAPort}) {
            port->setPortName(line->portName());
            QVERIFY(open(50));
            port->setPortName(name);
            QVERIFY(port->isOpen() && !port->open() && !port->isOpen() && !port->errorString().empty());
        }
    }

    void isExclusive()
    {
        const auto other = makePort(line->portName());
        QVERIFY(other->open() && !open(50) && !port->errorString().empty());
        other->close();
        QVERIFY(open(50));
        port->close();
        if (!subject.namesReachOtherProcesses)
            QSKIP("Other processes do not know the line");
        QProcess process;
        process.start(QCoreApplication::applicationFilePath(), {holdOption, QString::fromStdString(line->portName())});
        QVERIFY(process.waitForReadyRead() && process.readLine().trimmed() == "open");
        QVERIFY(!open(50) && !port->errorString().empty());
        process.closeWriteChannel();
        QVERIFY(process.waitForFinished() && open(50));
    }

    void queue()
    {
        for (int i = 0; i < 2; ++i) { // to a closed and to an open port
            line->send(pattern(9000));
            QTest::qWait(50);
            QVERIFY(open(100) && read(*port, 1).isEmpty());
        }
        line->send(pattern(200));
        QTRY_COMPARE(port->bytesAvailable(), 200U);
        QVERIFY(port->purge(false, false) && port->purge(false, true));
        QCOMPARE(port->skip(0), 0U);
        QCOMPARE(port->skip(100), 96U);
        QCOMPARE(port->skip(3), 3U);
        QCOMPARE(read(*port, 1), pattern(100).last(1));
        QVERIFY(port->purge(true, false) && port->bytesAvailable() == 0 && port->skip(5) == 0);
    }

    void cancelStandsUntilOpen()
    {
        QVERIFY(open(longLimit));
        line->send("abc");
        QTRY_COMPARE(port->bytesAvailable(), 3U);
        port->cancel();
        QCOMPARE(read(*port, 3), "abc");
        QElapsedTimer time;
        time.start();
        QVERIFY(open(300) && read(*port, 1).isEmpty() && time.elapsed() >= 280);
    }

    void cancelAtAnyMoment()
    {
        QElapsedTimer time;
        for (int round = 0; round < 600; ++round) {
            std::atomic_bool opened = round % 3 == 0; // then the cancels also meet the opening and the closing
            std::atomic_bool over = false;
            std::thread canceller([&, delay = QRandomGenerator::global()->bounded(1500U)] {
                while (!opened)
                    std::this_thread::yield();
                for (QThread::usleep(delay); !over; QThread::usleep(50))
                    port->cancel();
            });
            const bool isOpen = open(longLimit);
            opened = true;
            time.start();
            const qsizetype count = round % 2 == 0 ? read(*port, 9).size() : write(*port, pattern(30000));
            const auto lasted = time.elapsed();
            port->close();
            over = true;
            canceller.join();
            QVERIFY(isOpen && count == 0 && lasted < early);
        }
    }
};

int runSerialPortContract(int argc, char** argv, ContractSubject subject)
{
    const QCoreApplication application(argc, argv);
    SerialPortContract contract;
    contract.subject = std::move(subject);
    if (argc == 3 && qstrcmp(argv[1], holdOption) == 0) {
        const auto port = contract.makePort(argv[2]);
        std::puts(port->open() ? "open" : "refused");
        std::fflush(stdout);
        return std::getchar() == EOF ? 0 : 1;
    }
    return QTest::qExec(&contract, argc, argv);
}

#include "SerialPortContract.moc"
