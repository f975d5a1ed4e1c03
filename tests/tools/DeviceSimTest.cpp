#include "tools/devicesim/DeviceSim.h"

#include "tools/devicesim/UniqueFd.h"

#include <QElapsedTimer>
#include <QFileInfo>
#include <QJsonDocument>
#include <QProcess>
#include <QRegularExpression>
#include <QTemporaryDir>
#include <QTest>

#include <fcntl.h>
#include <poll.h>

using namespace devicesim;
using namespace std::chrono_literals;

namespace
{

/// The device's host: the other end of the line, by nothing but system calls.
struct Host {
    UniqueFd line;

    bool send(const QByteArray& bytes) const
    {
        return ::write(line.get(), bytes, size_t(bytes.size())) == bytes.size();
    }

    /// All that comes until `size` bytes are there or nothing has come for `limit`.
    QByteArray receive(qsizetype size, std::chrono::milliseconds limit) const
    {
        QByteArray bytes;
        pollfd source = {line.get(), POLLIN, 0};
        for (char byte = 0; bytes.size() < size && ::poll(&source, 1, int(limit.count())) > 0; bytes.append(byte)) {
            if (::read(line.get(), &byte, 1) != 1) {
                break;
            }
        }
        return bytes;
    }
};

Host openLine(const std::string& port)
{
    return {UniqueFd(::open(port.c_str(), O_RDWR | O_NOCTTY | O_NONBLOCK))};
}

/// Frames as they stand on the line, checksums worked out by hand, and patterns for what has no fixed bytes. `zeros`
/// are 512 bytes.
const char* const frames =
    "version=801e000000007fe1 identity=801e00000300421083200003bdd2 ping=801cf0ff01008e1c erase=801600ff06a579b3 "
    "blank=801c003102007dd2 reset=801a000000007fe5 write=801200310200112233ff5f01 writeF0=801200310100f0ff8e23 "
    "writeBlock=801200310001 endOfBlock=7fdd readBlock=8014003100017fdb read=8014003102007dda badSum=801e000000007fe2 "
    "content=801400310200112233ff5f07 cleared=801400310200102233ff5e07 stuckContent=80140031020011a233fe5f86 "
    "badErase=801600ff05a57ab3 writePastEnd=8012feff0200000000008312 blankPastEnd=801cfeff0200831c "
    "cutWrite=801200310200 "
    "blankAtEnd=801cfeff0100801c readTooMuch=80140000fc0383e8 readMost=80140000fb0384e8 not=70 ok=90 no=a0 "
    "most=80140000fb03(ff){2038}7b17 cutIdentity=80(?!1e.{24}).* status=(70|80|90|a0) junk=558000ff80 "
    "noise=((?!70|80|90|a0)..){1,4} flippedOk=(91|92|94|98|80|b0|d0|10)";

/// @param names of frames or hexadecimal digits, joined by '+'.
QByteArray hexOf(const QString& names)
{
    QString hex;
    for (const QString& name : names.split('+')) {
        hex += QString(" zeros=%1 %2").arg("", 1024, '0').arg(frames).section(' ' + name + '=', 1).section(' ', 0, 0);
    }
    return hex.toLatin1();
}

/// A name, what is wrong with a device, and what its host sends and then receives, turn by turn.
const char* const conversations[][3] = {
    {"commands", "", "version=identity ping=ok write=ok read=content blank=not erase= =ok blank=ok reset=ok"},
    {"limits", "", "badErase=no writePastEnd=no blankPastEnd=no blankAtEnd=ok readTooMuch=no readMost=most"},
    {"not in step", "", "junk+version=identity badSum= version=identity cutWrite= = = version=identity"},
    {"one by one", "", "write+writeF0+ping+read=ok+ok+ok+cleared"},
    {"drop", "drop:1", "write="},
    {"refuse", "refuse:1", "erase=no version=no"},
    {"cut", "cut:1", "version=cutIdentity ping=ok"},
    {"flip", "flip:1", "ping=flippedOk"},
    {"noise", "noise:1 refuse:1", "ping=noise+no"},
    {"stray", "stray:1", "ping=status+ok"},
    {"lose", "lose:1", "write="},
    {"late", "late:1", "ping= =ok"},
    {"late start", "late-start:500", "ping= = = = = = = ping=ok"},
    {"stuck bits", "stuck-bit:0x3101.7=1 stuck-bit:0x3103.0=0", "erase=ok blank=not write=ok read=stuckContent"},
    {"dirty blank", "dirty-blank", "ping=ok erase=ok blank=not blank=ok erase=ok blank=ok"},
    {"hang-up", "hangup:2", "ping=ok ping="},
    {"hang-up behind a command", "hangup:erase+1", "ping=ok ping=ok erase=ok ping="},
};

} // namespace

class DeviceSimTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void conversation_data()
    {
        QTest::addColumn<QString>("faults");
        QTest::addColumn<QString>("turns");
        for (const auto& [name, faults, turns] : conversations) {
            QTest::newRow(name) << faults << turns;
        }
    }

    void conversation()
    {
        QFETCH(const QString, faults);
        QFETCH(const QString, turns);
        DeviceConfig config;
        config.eraseTime = config.lateTime = 500ms;
        for (const QString& fault : faults.split(' ', Qt::SkipEmptyParts)) {
            QCOMPARE(config.faults.add(fault), QString());
        }
        DeviceSim device(config);
        QVERIFY2(device.start(), device.errorString().c_str());
        const Host host = openLine(device.portName());
        for (const QString& turn : turns.split(' ')) {
            QVERIFY(host.send(QByteArray::fromHex(hexOf(turn.section('=', 0, 0)))));
            const QString expected = hexOf(turn.section('=', 1));
            QByteArray reply = host.receive(expected.contains('(') ? 1 : expected.size() / 2, 10s);
            reply += host.receive(4096, 100ms);
            const QRegularExpression pattern(QRegularExpression::anchoredPattern(expected));
            QVERIFY2(pattern.match(reply.toHex()).hasMatch(), qPrintable(turn + " got " + reply.toHex()));
        }
        QCOMPARE(device.waitForEnd(0ms), faults.startsWith("hangup"));
    }

    // Ten bits a byte. Never faster; slower only by what a machine under load adds, so the best of many tries counts.
    void pacing()
    {
        for (const uint baudRate : {57600U, 115200U}) {
            DeviceConfig config;
            config.baudRate = baudRate;
            DeviceSim device(config);
            QVERIFY2(device.start(), device.errorString().c_str());
            const Host host = openLine(device.portName());
            for (const int received : {1, 520}) {
                const QByteArray frame =
                    QByteArray::fromHex(hexOf(received == 1 ? "writeBlock+zeros+endOfBlock" : "readBlock"));
                const double lineTime = double(frame.size() + received) * 10e9 / baudRate;
                double best = 1e12;
                for (int attempt = 0; attempt < 200 && best > lineTime * 1.01; ++attempt) {
                    QElapsedTimer timer;
                    timer.start();
                    QVERIFY(host.send(frame) && host.receive(received, 10s).size() == received);
                    best = qMin(best, double(timer.nsecsElapsed()));
                }
                const QString result = QString("%1 of the line time at %2").arg(best / lineTime).arg(baudRate);
                QVERIFY2(best >= lineTime * 0.9999 && best <= lineTime * 1.01, qPrintable(result));
            }
        }
    }

    void program()
    {
        const QTemporaryDir folder;
        const QString link = folder.filePath("serial/devicesim");
        QFile memory(folder.filePath("memory")), report(folder.filePath("report"));
        QVERIFY(memory.open(QIODevice::ReadWrite) && memory.write("\x12", 1) == 1 && memory.flush());
        qputenv("XDG_RUNTIME_DIR", folder.path().toLocal8Bit());
        const QString wrong = "bogus drop:1.1 drop:nan stuck-bit:65536 stuck-bit:0.8 dirty-blank:1 hangup:0 "
                              "hangup:erase+x hangup:eraser late-start:x drop;drop";
        for (const QString& fault : wrong.split(' ')) {
            QCOMPARE(QProcess::execute(DEVICESIM_PROGRAM,
                         QString(fault).replace(QRegularExpression("^|;"), " --fault=").split(' ', Qt::SkipEmptyParts)),
                2);
        }
        QCOMPARE(QProcess::execute(DEVICESIM_PROGRAM, {"--link", memory.fileName()}), 1);
        QVERIFY(QDir(folder.path()).mkdir("serial") && QFile::link("/dev/pts/99999", link)); // left by a killed one
        QProcess device;
        device.start(DEVICESIM_PROGRAM, {"--once", "--memory", memory.fileName(), "--report", report.fileName()});
        QVERIFY(device.waitForReadyRead(10000) && device.readAll().contains(link.toLocal8Bit()));
        QVERIFY(openLine(link.toStdString()).send(QByteArray::fromHex(hexOf("write+reset"))));
        QVERIFY(device.waitForFinished(10000) && device.exitCode() == 0 && !QFileInfo(link).isSymLink());
        memory.close();
        QVERIFY(memory.open(QIODevice::ReadOnly) && report.open(QIODevice::ReadOnly));
        const QByteArray expected = QByteArray("\x12").leftJustified(0x3100, '\xFF') + "\x11\x22\x33";
        QCOMPARE(memory.readAll(), expected.leftJustified(0x10000, '\xFF'));
        const QJsonObject seen = QJsonDocument::fromJson(report.readAll()).object();
        QVERIFY(seen["resets"] == 1 && seen["requestCounts"]["write"] == 1 && seen["memory"]["lastUsed"] == "0x3102");
        device.start(DEVICESIM_PROGRAM, {"--verbose"});
        QVERIFY(device.waitForReadyRead(10000) && QFileInfo(link).isSymLink());
        device.terminate();
        QVERIFY(device.waitForFinished(10000) && device.exitCode() == 0 && !QFileInfo(link).isSymLink());
    }
};

QTEST_GUILESS_MAIN(DeviceSimTest)
#include "DeviceSimTest.moc"
