#include "bootloader/BootloaderClient.h"
#include "burn/BurnMessageEvent.h"
#include "burn/BurnProgressEvent.h"
#include "tests/burn/ScriptedDevice.h"

#include <QRegularExpression>
#include <QTemporaryDir>
#include <QTest>

#include <atomic>
#include <vector>

namespace
{

/// Records the events of a burn as lines, but for the rising values of the delay.
class Observer : public QObject
{
public:
    QStringList lines;
    QVector<int> delayValues;
    std::function<void(const QString&)> onLine = [](const QString&) {};

protected:
    void customEvent(QEvent* event) override
    {
        QString line;
        if (event->type() == BurnMessageEvent::eventType) {
            const auto& message = static_cast<const BurnMessageEvent&>(*event);
            line = QStringList{"", "log ", "error ", "status "}.value(int(message.kind)) + message.text;
        } else if (event->type() == BurnProgressEvent::eventType) {
            const auto& progress = static_cast<const BurnProgressEvent&>(*event);
            line = QStringList{"value ", "minimum ", "maximum ", "enabled "}.value(int(progress.kind)) +
                   QString::number(progress.value);
            if (delaying && progress.kind == ProgressKind::Value &&
                progress.value >= delayValues.value(delayValues.size() - 1)) {
                return delayValues.push_back(progress.value);
            }
        }
        delaying = line == "log Powerup delay...";
        lines += line;
        onLine(line);
    }

private:
    bool delaying = false;
};

/// A block of the image under test.
struct Block {
    int address;
    const char* inMessages;
};
constexpr Block a{0x1A00, "01a00:200"};
constexpr Block b{0x1C10, "01c10:200"};
constexpr Block c{0xFE00, "0fe00:002"};
constexpr Block d{0xFE02, "0fe02:1fe"};

const QByteArray pattern(512, 'x');
/// Blocks of 512, 512, 2 and 510 bytes, the first two alike. The last one ends with the address space, where the
/// scanner's own block has two bytes more.
const QVector<ImagePart> image = {
    {0x1A00, pattern}, {0x1C10, pattern}, {0xFE00, 'y' + QByteArray(4, '\xFF') + QByteArray(507, 'y')}};

/// The positions of the bar as one block after the other is worked on.
QStringList at(const std::vector<Block>& blocks)
{
    QStringList lines;
    for (const Block& block : blocks) {
        lines += "value " + QString::number(block.address);
    }
    return lines;
}

QStringList entering(const QString& status, bool stoppable, const QStringList& range, const QStringList& log)
{
    return QStringList{"value 0", stoppable ? "enabled 1" : "enabled 0", "status " + status} + range +
           QStringList(log).replaceInStrings(QRegularExpression("^"), "log ");
}

QStringList error(const QString& text, const Block& block)
{
    return {"error " + text + ' ' + block.inMessages};
}

const auto dirty = [](const Block& block) { return error("Found bad memory block", block); };
const auto unwritten = [](const Block& block) { return error("Error while writing memory block", block); };
const auto unread = [](const Block& block) { return error("Error while verifying", block); };
const auto differs = [](const Block& block) { return error("Data no match", block); };

QStringList times(int count, const QStringList& lines)
{
    return count == 0 ? QStringList() : lines + times(count - 1, lines);
}

const QStringList all = at({a, b, c, d});
const QStringList span = {"minimum 6656", "maximum 65535"};
const QStringList emptySpan = {"minimum 0", "maximum 0"};
const QStringList upload = {"log Uploading firmware: 'Board %2' 1.2%1"};
const QStringList wait = entering("Waiting for device", true, {}, {"Waiting for device on 'COM%1'..."});
const QStringList found = {"log Found device bootloader: v1.1.2", "log Existing firmware: v2.2.3"};
const QStringList delay = entering("Delay", true, {"minimum 0", "maximum 3000"}, {"Powerup delay..."});
const QStringList erase =
    entering("Erasing", false, {}, {"<b>DO NOT TURN OFF</b> device during programming", "Erasing..."});
/// Up to the last value of the delay, which comes when the next state has been entered.
const QStringList up = upload + wait + found + delay + erase + QStringList{"value 2000"};
const QStringList erased = {"log Erase successful"};
const QStringList check = entering("Blank Checking", false, span, {"Blank Checking..."});
const QStringList blank = {"log Blank check complete, device is blank"};
const QStringList program = entering("Programming", false, span, {"Programming..."});
const QStringList programmed = {"log Programming complete"};
const QStringList verify = entering("Verifying", true, span, {"Verifying..."});
const QStringList comparing = QStringList{"log Comparing with firmware: 'Board %2' 1.2%1"} + wait + found + verify;
const QStringList verified = {"log Verification successful"};
const QStringList reset = entering("Reset", true, {}, {"Reset device"});
const QStringList end = entering("", true, {}, {"<b>Complete</b>"});
const QStringList good = verified + reset + end;
const QStringList burnedAfterErase = erased + check + all + blank + program + all + programmed + verify;
const QStringList checked = up + erased + check + all + blank + program;
const QStringList written = up + burnedAfterErase;
const QStringList cancelled = {"log Operation cancelled by user"};
const QStringList foreign = {"error Device is not support"};

QStringList badBlocks(int count)
{
    return {QString("error Verification failed: %1 of 4 blocks differ").arg(count)};
}

/// The firmware file of a burn.
enum class File { Good, Missing, Empty, DataTooHigh, NoBaudRate, OtherDevice };

struct Burn {
    const char* name;
    QStringList events;
    /// As `ScriptedDevice` tells.
    const char* requests;
    BurnThread::Outcome outcome = BurnThread::Outcome::Succeeded;
    const char* faults = "";
    File file = File::Good;
    bool portOpens = true;
    bool stopAtOpening = false;
    bool stopAtEnd = false;
    BurnTask task = BurnTask::Burn;
    bool resetAtEnd = false;
    /// The device holds the image already.
    bool burned = false;
};

using enum BurnThread::Outcome;

const std::vector<Burn> burns = {
    {"no file", {"error Can't open input file. No such file or directory"}, "", Failed, "", File::Missing},
    {"data too high", {"error Can't open input file. Data at address 0x10004 is out of reach of the bootloader"}, "",
        Failed, "", File::DataTooHigh},
    {"no baud rate", {"error Can't open input file. A baud rate of 0 is not possible"}, "", Failed, {},
        File::NoBaudRate},
    {.name = "no port",
        .events = upload + QStringList{"error Can't open serial port 'COM%1'. Access to '%2' is denied"},
        .requests = "",
        .outcome = Failed,
        .portOpens = false},
    {"foreign device", upload + wait + found + foreign + end, "v", Failed, "", File::OtherDevice},
    {"empty image",
        up + erased + entering("Blank Checking", false, emptySpan, {"Blank Checking..."}) + blank +
            entering("Programming", false, emptySpan, {"Programming..."}) + programmed +
            entering("Verifying", true, emptySpan, {"Verifying..."}) + good,
        "vpevx", Succeeded, "", File::Empty},
    {"all well", written + all + good, "vpebbbbwwwwrprrrvx"},
    {"device late to come", written + all + good, "vvvvpebbbbwwwwrprrrvx", Succeeded,
        "ignore@version.1 refuse@version.2 ignore@version.3"},
    {"erase, blank check repeated",
        up + erased + check + at({a, a, a, b, b, c, d}) + blank + program + all + programmed + verify + all + good,
        "vpeeevbbbvbbvbbwwwwrprrrvx", Succeeded,
        "ignore@erase.1 refuse@erase.2 ignore@blank-check.1 refuse@blank-check.2 ignore@blank-check.4"},
    {"late answer to an erase",
        up + erased + check + at({a}) + dirty(a) + erase + erased + check + all + blank + program + all + programmed +
            verify + all + good,
        "vpeevbebbbbwwwwrprrrvx", Succeeded, "late:350@erase.1 not-blank@blank-check.1"},
    {"write repeated",
        checked + at({a}) + unwritten(a) + at({a}) + unwritten(a) + all + programmed + verify + all + good,
        "vpebbbbwwwvwwwrprrrvx", Succeeded, "ignore@write.1 refuse@write.2"},
    {"dead after a write was repeated",
        checked + at({a}) + unwritten(a) + at({a}) + times(3, at({b}) + unwritten(b)) + cancelled, "vpebbbbwwvvv",
        Cancelled, "ignore@write.1 ignore@version.2 ignore@version.3 hangup@version.4"},
    {"read repeated", written + at({a}) + unread(a) + at({a}) + unread(a) + all + good, "vpebbbbwwwwrrrvrrrvx",
        Succeeded, "ignore@read.1 refuse@read.2"},
    {"reply for another block's",
        written + at({a}) + unread(a) + at({a, b}) + differs(b) + at({b, c, d}) + badBlocks(1) + end,
        "vpebbbbwwwwrrvrrvrrv", Failed, "late:520@read.1 bad-bit@read.3 bad-bit@read.4"},
    {"reply sent twice, and the next block bad", written + at({a, b}) + differs(b) + at({b, c, d}) + badBlocks(1) + end,
        "vpebbbbwwwwrprrvrrv", Failed, "twice@read.1 bad-bit@read.2 bad-bit@read.3"},
    {"second look is good", written + at({a}) + differs(a) + at({a, b}) + differs(b) + at({b, c, d}) + good,
        "vpebbbbwwwwrrvrrvrrvvx", Succeeded, "bad-bit@read.1 bad-bit@read.3 twice@read.6"},
    {"bad blocks",
        written + at({a}) + differs(a) + at({a, b, c}) + differs(c) + at({c}) + unread(c) + at({c, d}) + badBlocks(2) +
            end,
        "vpebbbbwwwwrrvrrrrvrv", Failed, "bad-bit@read.1 bad-bit@read.2 bad-bit@read.4 ignore@read.5 bad-bit@read.6"},
    {"another device while an erase is repeated", up + foreign + end, "vpeevvv", Failed, "swap:1000@erase.1"},
    {"another device while a write is repeated", checked + times(5, at({a}) + unwritten(a)) + foreign + end,
        "vpebbbbwwvvv", Failed, "swap:1000@write.1"},
    {"another device at the last read", written + at({a, b, c}) + times(5, at({d}) + unread(d)) + foreign + end,
        "vpebbbbwwwwrprrrrvvv", Failed, "swap:1000@read.4"},
    {"another device behind the last read",
        written + all + times(2, {"error Error while verifying the device id"}) + foreign + end, "vpebbbbwwwwrprrrvvvv",
        Failed, "swap:300@version.2"},
    {.name = "another device behind a late identity",
        .events = comparing + times(6, at({a}) + unread(a)) + foreign + end,
        .requests = "vvvvvvvpv",
        .outcome = Failed,
        .faults = "late:700@version.1 swap:2000@version.2",
        .task = BurnTask::Verify,
        .burned = true},
    {.name = "another device behind a lost identity",
        .events = comparing + times(5, at({a}) + unread(a)) + foreign + end,
        .requests = "vvpv",
        .outcome = Failed,
        .faults = "ignore@version.1 swap:1000@ping.1",
        .task = BurnTask::Verify,
        .burned = true},
    {.name = "stop before the port opens",
        .events = upload + wait + cancelled,
        .requests = "",
        .outcome = Cancelled,
        .stopAtOpening = true},
    {"stop while waiting", upload + wait + cancelled, "vv", Cancelled, "ignore@version.1 hangup@version.2"},
    {"stop in the delay", upload + wait + found + delay + cancelled, "vp", Cancelled, "hangup@ping.3"},
    {"stop in erase", up + cancelled, "vpe", Cancelled, "hangup@erase.1"},
    {"stop in program", checked + at({a}) + unwritten(a) + cancelled, "vpebbbbw", Cancelled, "hangup@write.1"},
    {"stop in verify", written + at({a, b}) + unread(b) + cancelled, "vpebbbbwwwwrpr", Cancelled, "hangup@read.2"},
    {.name = "stop after the end", .events = written + all + good, .requests = "vpebbbbwwwwrprrrvx", .stopAtEnd = true},
    {.name = "identify and reset",
        .events = wait + found + reset + end,
        .requests = "vx",
        .file = File::Missing,
        .task = BurnTask::Identify,
        .resetAtEnd = true},
    {.name = "compare, equal, and reset",
        .events = comparing + all + good,
        .requests = "vrprrrvx",
        .task = BurnTask::Verify,
        .resetAtEnd = true,
        .burned = true},
    {.name = "burn if needed, equal",
        .events = upload + wait + found + verify + all + good,
        .requests = "vrprrrvx",
        .task = BurnTask::BurnIfNeeded,
        .burned = true},
    {.name = "burn if needed, different",
        .events = upload + wait + found + verify + at({a}) + differs(a) + at({a}) +
                  QStringList{"log The device differs from the firmware file and will be burned"} + delay + erase +
                  QStringList{"value 2000"} + burnedAfterErase + all + good,
        .requests = "vrrvpebbbbwwwwrprrrvx",
        .task = BurnTask::BurnIfNeeded},
};

QString writeFile(const QString& folder, File file)
{
    const QVector<ImagePart> content = file == File::Empty         ? QVector<ImagePart>()
                                       : file == File::DataTooHigh ? QVector<ImagePart>{{0x10004, "z"}}
                                                                   : image;
    const QString path = writeFirmware(
        folder, content, file == File::OtherDevice ? 0x0301 : 0x0300, file == File::NoBaudRate ? 0 : 57600);
    return file == File::Missing ? path + ".none" : path;
}

} // namespace

class BurnThreadTest : public QObject
{
    Q_OBJECT

    QTemporaryDir folder;

private Q_SLOTS:
    void wholeStream_data()
    {
        QTest::addColumn<int>("row");
        for (std::size_t i = 0; i < burns.size(); ++i) {
            QTest::newRow(burns[i].name) << int(i);
        }
    }

    void wholeStream()
    {
        QFETCH(const int, row);
        const Burn& expected = burns[std::size_t(row)];
        ScriptedDevice device(expected.faults, expected.portOpens ? L"" : L"Access to '%2' is denied");
        Observer observer;
        BurnThread burn(&observer, device.clientFactory(), device.line->clock());
        std::atomic<bool> stopRequested = false;
        device.requestStop = [&] { stopRequested = true; };
        device.stopAtOpening = expected.stopAtOpening;
        observer.onLine = [&](const QString& line) {
            if (expected.stopAtEnd && line == end.last()) {
                stopRequested = true;
            }
        };
        const auto stopAsRequested = [&] {
            if (stopRequested.exchange(false)) {
                burn.stopBurn();
            }
            return burn.isFinished();
        };
        const QString path = writeFile(folder.path(), expected.file);
        for (const auto& [address, data] : expected.burned ? image : QVector<ImagePart>()) {
            std::copy(data.begin(), data.end(), device.traits.memory.begin() + address);
        }

        // One object serves a burn after the other.
        for (int run = 0; run < 2; ++run) {
            stopRequested = false;
            observer.lines.clear();
            observer.delayValues.clear();
            device.restart();
            burn.startJob(
                {.task = expected.task, .portName = "COM%1", .fileName = path, .resetAtEnd = expected.resetAtEnd});
            QVERIFY(QTest::qWaitFor(stopAsRequested, 30000));
            QCoreApplication::sendPostedEvents();

            for (int i = 0; i < std::max(expected.events.size(), observer.lines.size()); ++i) {
                QCOMPARE(observer.lines.value(i, "nothing"), expected.events.value(i, "nothing"));
            }
            QVERIFY(!expected.events.contains("value 2000") ||
                    (observer.delayValues.size() > 20 && observer.delayValues.last() < 3000));
            QCOMPARE(device.requests, QString(expected.requests));
            QCOMPARE(int(burn.outcome()), int(expected.outcome));
            QCOMPARE(burn.result().reason == BurnResult::Reason::None, expected.outcome == Succeeded);
            QCOMPARE(burn.result().identity.has_value(), expected.events.contains(found.last()));
            QCOMPARE(burn.result().erases, int(expected.events.count(erased.last())));
            QVERIFY2(device.client.expired(), "the client outlived its burn");
        }
    }
};

QTEST_GUILESS_MAIN(BurnThreadTest)
#include "BurnThreadTest.moc"
