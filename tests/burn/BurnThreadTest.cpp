#include "bootloader/BootloaderClient.h"
#include "burn/BurnMessageEvent.h"
#include "burn/BurnProgressEvent.h"
#include "tests/burn/ScriptedDevice.h"

#include <QElapsedTimer>
#include <QMap>
#include <QRandomGenerator>
#include <QRegularExpression>
#include <QTemporaryDir>
#include <QTest>

#include <atomic>

namespace
{

/// Takes the events of a burn down, one line each, but for the rising values of the delay.
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
            line = QStringList{"?", "L ", "X ", "S "}.value(int(message.kind)) + message.text;
        } else if (event->type() == BurnProgressEvent::eventType) {
            const auto& progress = static_cast<const BurnProgressEvent&>(*event);
            line = QStringList{"V", "min", "max", "E"}.value(int(progress.kind)) + QString::number(progress.value);
            if (delaying && line[0] == 'V' && progress.value >= delayValues.value(delayValues.size() - 1)) {
                return delayValues.push_back(progress.value);
            }
        }
        delaying = line == "L Powerup delay...";
        lines += line;
        onLine(line);
    }

private:
    bool delaying = false;
};

/// What the words of the expected streams stand for, but for those that name a block.
const char vocabulary[] = R"(
upload      L Uploading firmware: 'Board %2' 1.2%1
wait        V0|E1|S Waiting for device|L Waiting for device on 'COM%1'...
found       L Found device bootloader: v1.2.3|L Existing firmware: v4.5.6
delay       V0|E1|S Delay|min0|max3000|L Powerup delay...
erase       V0|E0|S Erasing|L <b>DO NOT TURN OFF</b> device during programming|L Erasing...
late        V2000
erased      L Erase successful
check       V0|E0|S Blank Checking|min6656|max65535|L Blank Checking...
blank       L Blank check complete, device is blank
program     V0|E0|S Programming|min6656|max65535|L Programming...
programmed  L Programming complete
verify      V0|E1|S Verifying|min6656|max65535|L Verifying...
verified    L Verification successful
reset       V0|E1|S Reset|L Reset device
end         V0|E1|S |L <b>Complete</b>
cancelled   L Operation cancelled by user
one-bad     X Verification failed: 1 of 4 blocks differ
two-bad     X Verification failed: 2 of 4 blocks differ
foreign     X Device is not support
no-file     X Can't open input file. No such file or directory
too-high    X Can't open input file. Data at address 0x10004 is out of reach of the bootloader
no-rate     X Can't open input file. A baud rate of 0 is not possible
no-port     X Can't open serial port 'COM%1'. Access to '%2' is denied
dirty       X Found bad memory block
unwritten   X Error while writing memory block
unread      X Error while verifying
differs     X Data no match
up          upload wait found delay erase late
written     up erased check abcd blank program abcd programmed verify
good        verified reset end
)";

/// The blocks of the image: position of the bar, and name. A word is a row of blocks ("ab"), a block and what is wrong
/// with it ("a:dirty"), or one of the vocabulary, which may stand for other words.
const QMap<QChar, QStringList> blocks = {{'a', {"V6656", "01a00:200"}}, {'b', {"V7184", "01c10:200"}},
    {'c', {"V65024", "0fe00:002"}}, {'d', {"V65026", "0fe02:1fe"}}};

QStringList expand(const QString& words)
{
    QStringList lines;
    for (const QString& word : words.split(' ', Qt::SkipEmptyParts)) {
        const QString entry =
            QRegularExpression("^" + word.section(':', -1) + " +(.*)$", QRegularExpression::MultilineOption)
                .match(vocabulary)
                .captured(1);
        if (word.contains(':')) {
            lines += entry + ' ' + blocks[word[0]][1];
        } else if (entry.isEmpty()) {
            for (const QChar block : word) {
                lines += blocks.value(block, {"no such word: " + word})[0];
            }
        } else {
            lines += QStringList{"up", "written", "good"}.contains(word) ? expand(entry) : entry.split('|');
        }
    }
    return lines;
}

/// Name, file, script, events, requests and outcome.
const char burns[] = R"(
no file                       |missing||no-file||Failed
data too high                 |high||too-high||Failed
no baud rate                  |rate 0||no-rate||Failed
no port                       |no port||upload no-port||Failed
foreign device                |foreign||upload wait found foreign end|v|Failed
empty image                   |empty||up erased check blank program programmed verify good|vpex|Succeeded
all well                      |good||written abcd good|vpebbbbwwwwrrrrx|Succeeded
device late to come           |good|v1- v2x v3-|written abcd good|vvvvpvebbbbwwwwrrrrx|Succeeded
erase, blank check repeated   |good|e1- e2x b1- b2x b4-|up erased check aaabbcd blank program abcd programmed verify abcd good|vpeeevbbbvbbvbbwwwwrrrrx|Succeeded
late answer to a ping         |good|p*+80 e1-|written abcd good|vpveevbbbbwwwwrrrrx|Succeeded
late answer to an erase       |good|e1+350 b1d|up erased check a a:dirty erase erased check abcd blank program abcd programmed verify abcd good|vpeevbebbbbwwwwrrrrx|Succeeded
late answer to a blank check  |good|b1+130 b3d|up erased check aab b:dirty erase erased check abcd blank program abcd programmed verify abcd good|vpebbvbebbbbwwwwrrrrx|Succeeded
write repeated                |good|w1- w2x|up erased check abcd blank program a a:unwritten a a:unwritten abcd programmed verify abcd good|vpebbbbwwwvwwwrrrrx|Succeeded
late answer to a write        |good|w1+350 w3-|up erased check abcd blank program a a:unwritten ab b:unwritten bcd programmed verify abcd good|vpebbbbwwvwwvwwrrrrx|Succeeded
read repeated                 |good|r1- r2x|written a a:unread a a:unread abcd good|vpebbbbwwwwrrrbrrrx|Succeeded
late reply to a read          |good|r1+350 r2-|written a a:unread abcd good|vpebbbbwwwwrrbrrrx|Succeeded
reply for another block's     |good|r1+520 r3b r4b|written a a:unread ab b:differs bcd one-bad end|vpebbbbwwwwrrbrrrr|Failed
reply sent twice              |good|r1=|written abc c:differs cd good|vpebbbbwwwwrrrrbrx|Succeeded
second look is good           |good|r1b r3b|written a a:differs ab b:differs bcd good|vpebbbbwwwwrrrrrrx|Succeeded
bad blocks                    |good|r1b r2b r4b r5- r6b|written a a:differs abc c:differs c c:unread cd two-bad end|vpebbbbwwwwrrrrrrbr|Failed
stop before the port opens    |good|o1s|upload wait cancelled||Cancelled
stop while waiting            |good|v1- v2s|upload wait cancelled|vv|Cancelled
stop in the delay             |good|p3s|upload wait found delay cancelled|vp|Cancelled
stop in erase                 |good|e1s|up cancelled|vpe|Cancelled
stop in blank check           |good|b1s|up erased check a cancelled|vpeb|Cancelled
stop in program               |good|w1s|up erased check abcd blank program a a:unwritten cancelled|vpebbbbw|Cancelled
stop in verify                |good|r2s|written ab b:unread cancelled|vpebbbbwwwwrr|Cancelled
stop in reset                 |good|x1s|written abcd good|vpebbbbwwwwrrrrx|Succeeded
stop after the end            |good|at end|written abcd good|vpebbbbwwwwrrrrx|Succeeded
)";

const QByteArray pattern(512, 'x');
/// Blocks of 512, 512, 2 and 510 bytes, the first two alike. The last one ends with the address space, where the
/// scanner's own block has two bytes more.
const QVector<ImagePart> image = {
    {0x1A00, pattern}, {0x1C10, pattern}, {0xFE00, 'y' + QByteArray(4, '\xFF') + QByteArray(507, 'y')}};

} // namespace

class BurnThreadTest : public QObject
{
    Q_OBJECT

    QTemporaryDir folder;

private Q_SLOTS:
    void wholeStream_data()
    {
        for (const char* column : {"file", "script", "events", "requests", "outcome"}) {
            QTest::addColumn<QString>(column);
        }
        for (const QString& line : QString(burns).split('\n', Qt::SkipEmptyParts)) {
            const QStringList cells = line.split('|');
            QTestData& row = QTest::newRow(cells[0].trimmed().toLatin1());
            for (int i = 1; i < cells.size(); ++i) {
                row << cells[i];
            }
        }
    }

    void wholeStream()
    {
        QFETCH(const QString, file);
        QFETCH(const QString, script);
        ScriptedDevice device(script, file == "no port" ? L"Access to '%2' is denied" : L"");
        Observer observer;
        BurnThread burn(&observer, device.clientFactory(), device.line->clock());
        std::atomic<bool> stopRequested = false;
        device.requestStop = [&] { stopRequested = true; };
        observer.onLine = [&](const QString& line) {
            if (script == "at end" && line == "L <b>Complete</b>") {
                stopRequested = true;
            }
        };
        const auto stopAsRequested = [&] {
            if (stopRequested.exchange(false)) {
                burn.stopBurn();
            }
            return burn.isFinished();
        };
        const QMap<QString, QVector<ImagePart>> images = {{"empty", {}}, {"high", {{0x10004, "z"}}}};
        const QString path = writeFirmware(folder.path(), images.value(file, image),
            file == "foreign" ? 0x0301 : 0x0300, file == "rate 0" ? 0 : 57600);

        // One object serves a burn after the other.
        for (int run = 0; run < 2; ++run) {
            stopRequested = false;
            observer.lines.clear();
            observer.delayValues.clear();
            device.restart();
            burn.startBurn("COM%1", file == "missing" ? path + ".none" : path);
            QVERIFY(QTest::qWaitFor(stopAsRequested, 30000));
            const QString outcome = QStringList{"Succeeded", "Failed", "Cancelled"}[static_cast<int>(burn.outcome())];
            QTEST(outcome, "outcome");
            QCoreApplication::sendPostedEvents();

            QFETCH(const QString, events);
            QStringList expected = expand(events);
            if (file == "empty") {
                expected.replaceInStrings("min6656", "min0").replaceInStrings("max65535", "max0");
            }
            for (int i = 0; i < std::max(expected.size(), observer.lines.size()); ++i) {
                QCOMPARE(observer.lines.value(i, "nothing"), expected.value(i, "nothing"));
            }
            QVERIFY(!expected.contains("V2000") ||
                    (observer.delayValues.size() > 20 && observer.delayValues.last() < 3000));
            QTEST(device.requests, "requests");
            QVERIFY2(device.client.expired(), "the client outlived its burn");
        }
    }

    void stopsAtAnyMoment()
    {
        const QString path = writeFirmware(folder.path(), image);
        ScriptedDevice device({});
        Observer observer;
        BurnThread burn(&observer, device.clientFactory(), device.line->clock());
        QElapsedTimer clock;
        clock.start();
        burn.startBurn("COM1", path);
        QVERIFY(burn.wait(QDeadlineTimer(30000)));
        const auto wholeBurnUs = static_cast<int>(clock.nsecsElapsed() / 1000);
        int cancelled = 0;
        for (int i = 0; i < 150; ++i) {
            observer.lines.clear();
            burn.startBurn("COM1", path);
            QThread::usleep(static_cast<unsigned long>(QRandomGenerator::global()->bounded(wholeBurnUs)));
            burn.stopBurn();
            const bool wasCancelled = burn.outcome() == BurnThread::Outcome::Cancelled;
            QVERIFY(device.client.expired());
            QCoreApplication::sendPostedEvents(&observer);
            cancelled += wasCancelled ? 1 : 0;
            QCOMPARE(
                observer.lines.value(observer.lines.size() - 1), expand(wasCancelled ? "cancelled" : "end").last());
        }
        QVERIFY2(cancelled > 0, "every burn ended before its stop");
    }
};

QTEST_GUILESS_MAIN(BurnThreadTest)
#include "BurnThreadTest.moc"
