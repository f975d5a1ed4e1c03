#include "tests/support/SerialPortContract.h"

#include <QRandomGenerator>
#include <QtTest>

#include <stop_token>
#include <thread>

namespace
{

// A limit that no call waits out, and the time by which it has ended therefore.
constexpr std::uint32_t longLimit = 20000;
constexpr int early = 8000;
// The clocks of limits and of tests need not tick alike.
constexpr int tolerance = 20;

QByteArray pattern(qsizetype size)
{
    QByteArray data(size, 0);
    for (qsizetype i = 0; i < size; ++i) {
        data[i] = static_cast<char>(i * 7 + i / 256);
    }
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
    RealLine(const QByteArrayList& names, const ContractSubject& subject)
        : name(names[0].toStdString())
        , farEnd(subject.makePort({names[1].toStdString()}))
    {
        farEnd->open();
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
    std::uint32_t baudRate, limit;
    int sent, size; // by the far end before the call, by the call
    Event event;    // while the call is under way
    int least, most;
    double lasts; // milliseconds at least; every call ends early
};

constexpr Call calls[] = {
    {"read on a silent line", false, 57600, 200, 0, 1, Event::None, 0, 0, 200 - tolerance},
    {"read of too much", false, 57600, 200, 40, 100, Event::None, 40, 40, 200 - tolerance},
    {"read of a part", false, 57600, longLimit, 700, 600, Event::None, 600, 600, 0},
    {"read of byte after byte", false, 57600, 300, 0, 1000, Event::Drip, 1, 999, 300 - tolerance},
    {"read, cancelled", false, 57600, longLimit, 3, 9, Event::Cancel, 0, 0, 0},
    {"read, hung up", false, 57600, 300, 0, 9, Event::HangUp, 0, 0, 300 - tolerance},
    {"read, hung up, cancelled", false, 57600, longLimit, 0, 9, Event::HangUpAndCancel, 0, 0, 0},
    {"write of a block", true, 57600, longLimit, 0, 520, Event::None, 520, 520, 90.27},
    {"write at a high rate", true, 250000, longLimit, 0, 4000, Event::None, 4000, 4000, 160.00},
    {"write to nobody", true, 115200, 300, 0, 200000, Event::None, 0, 199999, 300 - tolerance},
    {"write, cancelled", true, 57600, longLimit, 0, 200000, Event::Cancel, 0, 0, 0},
    {"write, hung up", true, 57600, 300, 0, 200000, Event::HangUp, 0, 0, 300 - tolerance},
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

    bool open(std::uint32_t limit, std::uint32_t baudRate = 57600)
    {
        line->setBaudRate(baudRate);
        port->setBaudRate(baudRate);
        port->setTimeouts(limit, limit);
        return port->open();
    }

    void happen(Event event, const std::stop_token& over)
    {
        for (; event == Event::Drip && !over.stop_requested(); QThread::msleep(20)) {
            line->send("x");
        }
        QThread::msleep(50);
        if (event >= Event::HangUp) {
            line->hangUp();
        }
        if (event == Event::Cancel || event == Event::HangUpAndCancel) {
            port->cancel();
        }
    }

private Q_SLOTS:
    void init()
    {
        const QByteArrayList names = qgetenv("TAVIMORA_TEST_PORTS").split(',');
        onRealPorts = names.size() == 2;
        port.reset();
        line.reset();
        line = onRealPorts ? std::make_unique<RealLine>(names, subject) : subject.makeLine();
        port = subject.makePort({line->portName()});
    }

    void callsEnd_data()
    {
        QTest::addColumn<Call>("call");
        for (const Call& call : calls) {
            QTest::newRow(call.name) << call;
        }
    }

    void callsEnd()
    {
        QFETCH(Call, call);
        if (onRealPorts && call.event >= Event::HangUp) {
            QSKIP("Nobody pulls the cable");
        }
        QVERIFY(open(call.limit, call.baudRate));
        line->send(pattern(call.sent));
        const QByteArray output = pattern(call.size);
        const bool isTimed = !call.writes || subject.writeTakesLineTime;
        QByteArray moved;
        // Twice, since a cancel stands and what is dead stays silent.
        for (int tries = call.event >= Event::Cancel ? 2 : 1; tries > 0; --tries) {
            const std::jthread other([&](const std::stop_token& over) { happen(call.event, over); });
            QElapsedTimer time;
            time.start();
            moved = call.writes ? output.first(write(*port, output)) : read(*port, call.size);
            const double lasted = double(time.nsecsElapsed()) / 1e6;
            QVERIFY2(moved.size() >= call.least && moved.size() <= call.most, QByteArray::number(moved.size()));
            QVERIFY2(lasted < early && (!isTimed || lasted >= call.lasts), QByteArray::number(lasted));
        }
        QVERIFY(port->isOpen() && (call.event != Event::None || moved == pattern(moved.size())));
        if (call.event == Event::HangUp) {
            QVERIFY(!port->applySettings() && !port->purge(true, true) && port->bytesAvailable() == 0);
        }
        if (call.writes && call.event == Event::None) {
            const bool complete = moved == output;
            const QByteArray arrived = line->receive(call.size, complete ? early : 300);
            QVERIFY(complete ? arrived == output : output.startsWith(arrived));
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
            QVERIFY(port->read(nullptr, 5) + port->read(&byte, 0) == 0 && byte == 0x5A);
            QVERIFY(port->write(nullptr, 5) + port->write(&byte, 0) == 0 && port->errorString() == before);
        }
        QVERIFY(port->applySettings() && port->applyTimeouts());
        port->close();
        port->close();
        QVERIFY(read(*port, 1).isEmpty() && write(*port, "x") == 0 && port->errorString() != before);
        QVERIFY(!port->isOpen() && !port->applySettings() && !port->applyTimeouts());
        QVERIFY(port->purge(true, true) && port->bytesAvailable() == 0);
    }

    void refusesToOpen()
    {
        const std::string taken = subject.onWine ? "" : line->portName();
        for (const std::string& name : {std::string(), std::string("TAVIMORA99"), subject.notAPort, taken}) {
            const auto other = subject.makePort({line->portName()});
            QVERIFY(other->open());
            port->setPortName(name);
            QVERIFY(!port->open() && !port->isOpen() && !port->errorString().empty());
            other->setPortName("");
            QVERIFY(other->isOpen() && !other->open() && !other->isOpen());
        }
        port->setPortName(line->portName());
        QVERIFY(port->open());
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
        QVERIFY(port->purge(false, false) && port->purge(false, true) && port->skip(0) == 0);
        if (!subject.onWine) {
            port->cancel();
        }
        QCOMPARE(port->skip(100), 96U);
        QCOMPARE(read(*port, 1), pattern(97).last(1));
        QVERIFY(port->purge(true, false) && port->bytesAvailable() == 0);
        QElapsedTimer time;
        time.start();
        QVERIFY(open(100) && port->skip(5) == 0 && time.elapsed() >= 3 * 100 - tolerance);
    }

    void cancelAtAnyMoment()
    {
        const QByteArray tooMuch = pattern(200000); // for the buffers of a line that nobody reads
        for (int round = 0; round < 600; ++round) {
            const std::jthread other([&](const std::stop_token& over) {
                for (QThread::usleep(QRandomGenerator::global()->bounded(2000U)); !over.stop_requested();) {
                    port->cancel();
                }
            });
            QElapsedTimer time;
            time.start();
            QVERIFY(open(longLimit));
            QCOMPARE(round % 2 == 0 ? read(*port, 9).size() : write(*port, tooMuch), 0);
            QVERIFY(time.elapsed() < early);
            port->close();
        }
    }
};

int runSerialPortContract(int argc, char** argv, ContractSubject subject)
{
    const QCoreApplication application(argc, argv);
    SerialPortContract contract;
    contract.subject = std::move(subject);
    return QTest::qExec(&contract, argc, argv);
}

#include "SerialPortContract.moc"
