#include "tools/devicesim/DeviceSim.h"

#include "tests/support/Program.h"

#include <QFileInfo>
#include <QJsonDocument>
#include <QTemporaryDir>
#include <QTest>

#include <fcntl.h>
#include <poll.h>
#include <sys/ioctl.h>

using namespace devicesim;
using namespace std::chrono_literals;

namespace
{

/// The device's host: the other end of the line, by nothing but system calls.
struct Host {
    explicit Host(const std::string& port)
        : line(::open(port.c_str(), O_RDWR | O_NOCTTY | O_NONBLOCK))
    {
    }

    FileDescriptor line;

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

// Frames as they stand on the line, checksums worked out by hand.
const auto hex = QByteArray::fromHex;
const QByteArray version = hex("801e 0000 0000 7fe1"), identity = hex("801e 0000 0300 4210 8320 0003 bdd2");
const QByteArray wrongChecksum = hex("801e 0000 0000 7fe2"), junk = hex("5580 00ff 80");
const QByteArray ping = hex("801c f0ff 0100 8e1c"), reset = hex("801a 0000 0000 7fe5");
const QByteArray erase = hex("8016 00ff 06a5 79b3"), wrongErase = hex("8016 00ff 05a5 7ab3");
const QByteArray blankAtEnd = hex("801c feff 0100 801c"), blankPastEnd = hex("801c feff 0200 831c");
const QByteArray blankWords = hex("801c 0031 0200 7dd2"), readWords = hex("8014 0031 0200 7dda");
const QByteArray writeWords = hex("8012 0031 0200 112233ff 5f01"), words = hex("8014 0031 0200 112233ff 5f07");
const QByteArray writeF0 = hex("8012 0031 0100 f0ff 8e23"), wordsAndF0 = hex("8014 0031 0200 102233ff 5e07");
const QByteArray writeBegin = hex("8012 0031 0200"), stuckWords = hex("8014 0031 0200 11a233fe 5f86");
const QByteArray writePastEnd = hex("8012 feff 0200 00000000 8312"), readTooMuch = hex("8014 0000 fc03 83e8");
const QByteArray readMost = hex("8014 0000 fb03 84e8");
const QByteArray most = hex("8014 0000 fb03") + QByteArray(2038, '\xFF') + hex("7b17");
const QByteArray nothing, notBlank = hex("70"), ok = hex("90"), refused = hex("a0");

/// What the host sends, and what it receives then.
struct Turn {
    QByteArray request;
    QByteArray reply = nothing;
};
const Turn silence{nothing};

struct Conversation {
    const char* name;
    QStringList faults;
    std::vector<Turn> turns;
    bool hangsUp = false;
};

const Conversation conversations[] = {
    {"limits", {},
        {{wrongErase, refused}, {writePastEnd, refused}, {blankPastEnd, refused}, {blankAtEnd, ok},
            {readTooMuch, refused}, {readMost, most}}},
    {"not in step", {},
        {{junk + version, identity}, {wrongChecksum}, {version, identity}, {writeBegin}, silence, silence,
            {version, identity}}},
    {"one by one", {}, {{writeWords + writeF0 + ping + readWords, ok + ok + ok + wordsAndF0}}},
    {"drop", {"drop:1"}, {{writeWords}}},
    {"refuse", {"refuse:1"}, {{erase, refused}, {version, refused}}},
    {"lose", {"lose:1"}, {{writeWords}}},
    {"late", {"late:1"}, {{ping}, {nothing, ok}}},
    {"late start", {"late-start:500"}, {{ping}, silence, silence, silence, silence, silence, silence, {ping, ok}}},
    {"stuck bits", {"stuck-bit:0x3101.7=1", "stuck-bit:0x3103.0=0"},
        {{erase, ok}, {blankWords, notBlank}, {writeWords, ok}, {readWords, stuckWords}}},
    {"at a request",
        {"not-blank@blank-check.1", "late@blank-check.2", "twice@ping", "flip:1@erase.2", "cut:3@version",
            "bad-bit@read.1", "ignore@reset", "stray:0x55@write"},
        {{erase, ok}, {blankWords, notBlank}, {blankWords}, {nothing, ok}, {ping, ok + ok}, {erase, hex("92")},
            {version, identity.first(3)}, {readWords, hex("8014 0031 0200 feffffff 7cda")}, {reset},
            {writeWords, hex("5590")}}},
    {"restart", {"restart:300@ping.2"}, {{ping, ok}, {ping}, {ping}, silence, silence, {ping, ok}}},
    {"swap", {"swap:0@ping.2"}, {{ping, ok}, {ping}, {version, hex("801e 0000 0300 4210 8320 0103 bcd2")}}},
    {"hang-up", {"hangup@ping.2"}, {{ping, ok}, {erase, ok}, {ping}}, true},
};

} // namespace

class DeviceSimTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void conversation_data()
    {
        QTest::addColumn<const Conversation*>("conversation");
        for (const Conversation& conversation : conversations) {
            QTest::newRow(conversation.name) << &conversation;
        }
    }

    void conversation()
    {
        QFETCH(const Conversation*, conversation);
        DeviceConfig config;
        config.eraseTime = config.lateTime = 500ms;
        for (const QString& fault : conversation->faults) {
            QCOMPARE(config.faults.add(fault), QString());
        }
        DeviceSim device(config);
        QVERIFY2(device.start(), device.errorString().c_str());
        const Host host(device.portName());
        for (const Turn& turn : conversation->turns) {
            QVERIFY(host.send(turn.request));
            QByteArray reply = host.receive(turn.reply.size(), 10s);
            reply += host.receive(4096, 100ms);
            QVERIFY2(reply == turn.reply, turn.request.toHex() + " got " + reply.toHex());
        }
        QCOMPARE(device.report().hungUp, conversation->hangsUp);
    }

    void program()
    {
        const QTemporaryDir folder;
        const QString memory = folder.filePath("memory"), report = folder.filePath("report");
        const QString port = folder.filePath("port");
        for (const QString fault : {"bogus", "drop:1.1", "drop:nan", "stuck-bit:65536", "stuck-bit:0.8", "drop:1@ping",
                 "late@ping.0", "late@ping.", "late:1e9@ping", "late@pong", "lose@ping", "late-start:x"}) {
            const Answer answer = run(DEVICESIM_PROGRAM, {"--fault", fault});
            QVERIFY2(answer.status == 2 && answer.error.contains(fault.toUtf8()), qPrintable(fault));
        }
        QVERIFY(write(memory, "\x12"));
        QCOMPARE(run(DEVICESIM_PROGRAM, {"--link", memory}).status, 1);
        QVERIFY(QFile::link("/dev/pts/99999", port)); // left by one that was killed
        QProcess device;
        device.start(DEVICESIM_PROGRAM, {"--once", "--link", port, "--memory", memory, "--report", report});
        QVERIFY(device.waitForReadyRead(programLimitMs));
        // Exclusive use outlasts a host that is killed, for as long as the device holds the line.
        QCOMPARE(::ioctl(Host(port.toStdString()).line.get(), TIOCEXCL), 0);
        const auto isServed = [&] {
            int exclusive = 0;
            const Host host(port.toStdString());
            return ::ioctl(host.line.get(), TIOCGEXCL, &exclusive) == 0 && exclusive == 0 &&
                   host.send(writeWords + reset);
        };
        QTRY_VERIFY(isServed());
        QVERIFY(answerOf(device).status == 0 && !QFileInfo(port).isSymLink());
        const QByteArray expected = QByteArray("\x12").leftJustified(0x3100, '\xFF') + "\x11\x22\x33";
        QCOMPARE(contentOf(memory), expected.leftJustified(0x10000, '\xFF'));
        const QJsonObject seen = QJsonDocument::fromJson(contentOf(report)).object();
        QVERIFY(seen["resets"] == 1 && seen["requestCounts"]["write"] == 1 && seen["memory"]["lastUsed"] == "0x3102");
    }
};

QTEST_GUILESS_MAIN(DeviceSimTest)
#include "DeviceSimTest.moc"
