#include "tests/e2e/SimulatedDevice.h"
#include "tests/support/IntelHex.h"
#include "tools/fwpack/Package.h"

#include <QCryptographicHash>
#include <QDateTime>
#include <QJsonDocument>
#include <QJsonObject>
#include <QSet>
#include <QTest>

#include <csignal>
#include <map>
#include <memory>
#include <vector>

namespace
{

const QByteArray content(2000, 'c');
const unsigned contentAddress = 0x3100;

QByteArray burnedMemory()
{
    return QByteArray(0x10000, '\xFF').replace(contentAddress, content.size(), content);
}

std::vector<QJsonObject> jsonLines(const QByteArray& text)
{
    std::vector<QJsonObject> objects;
    for (const QByteArray& line : text.split('\n')) {
        if (!line.isEmpty()) {
            objects.push_back(QJsonDocument::fromJson(line).object());
        }
    }
    return objects;
}

struct Device : SimulatedDevice {
    explicit Device(const QStringList& options = {}) { start(options); }
};

Answer run(const QStringList& arguments, const QByteArray& input = {})
{
    return run(TAVIMORA_CLI, arguments, input);
}

QSet<QString> keys(const QJsonObject& object)
{
    const QStringList names = object.keys();
    return {names.begin(), names.end()};
}

// The fields that tavimora-cli(1) promises.
const QSet<QString> common = {"event", "port", "time"};
const QSet<QString> resultFields = {"outcome", "reason", "explanation", "blocks", "badBlocks", "erases", "seconds"};
const QSet<QString> identityFields = {"deviceId", "deviceFamily", "bootloaderVersion", "previousFirmware"};
const QSet<QString> recordFields = {
    "started", "finished", "label", "port", "adapterSerial", "file", "sha256", "target", "version", "program"};

QSet<QString> expectedFields(const QJsonObject& object)
{
    const QString event = object["event"].toString();
    const QSet<QString> identity = object.contains("deviceId") ? identityFields : QSet<QString>();
    if (event.isEmpty()) {
        return recordFields + resultFields + identity;
    }
    if (event == "state") {
        return common + QSet<QString>{"state"};
    }
    if (event == "progress") {
        return common + QSet<QString>{"state", "value", "minimum", "maximum"};
    }
    if (event == "log" || event == "error") {
        return common + QSet<QString>{"text"};
    }
    return event == "result" ? common + resultFields + identity : QSet<QString>{"unknown event " + event};
}

} // namespace

/// The console program as a production line uses it.
class ProductionTest : public QObject
{
    Q_OBJECT

    const QTemporaryDir folder;
    const QString firmware = folder.filePath("firmware.txt");
    const QString recordFile = folder.filePath("record");

    std::vector<QJsonObject> records() const { return jsonLines(contentOf(recordFile)); }

private Q_SLOTS:
    void initTestCase()
    {
        const std::vector<std::pair<unsigned, QByteArray>> image = {{contentAddress, content}};
        QVERIFY(write(firmware, fwpack::makePackage({0x0300, "7.1", "Board", 4000000}, hexText(image))));
    }

    void init() { QFile::remove(recordFile); }

    /// Eight devices at once, one for each way in which a burn ends by itself.
    void manyAtOnce()
    {
        struct Expectation {
            QStringList options;
            QString outcome;
            QString reason;
            int erases;
        };
        const std::vector<Expectation> table = {
            {{}, "succeeded", "", 1},
            {{"--fault", "drop:0.1"}, "succeeded", "", 1},
            {{"--fault", "stuck-bit:0x3100.0=0", "--erase-time", "100"}, "failed", "gave-up", 2},
            {{"--fault", "hangup@write"}, "failed", "gave-up", 1},
            {{"--fault", "late-start:600000"}, "failed", "no-device", 0},
            {{"--device-id", "0x0400"}, "failed", "wrong-device", 0},
            {{"--fault", "stuck-bit:0x3200.2=1"}, "failed", "verify", 1},
            {{}, "failed", "port", 0},
        };
        std::vector<std::unique_ptr<Device>> devices;
        QStringList arguments = {"burn", "--json", "--record", recordFile, "--label", "Ä 1", "--timeout", "5",
            "--stall", "4", "--max-erases", "2", firmware};
        for (const Expectation& row : table) {
            devices.push_back(std::make_unique<Device>(row.options));
            arguments += {"--port", devices.back()->port + (row.reason == "port" ? ".none" : "")};
        }
        const Answer answer = run(arguments);
        QVERIFY2(answer.status == 1, answer.error);

        std::map<QString, QJsonObject> results;
        std::map<QString, QDateTime> lastProgress;
        for (const QJsonObject& object : jsonLines(answer.out)) {
            const QByteArray text = QJsonDocument(object).toJson();
            QVERIFY2(keys(object) == expectedFields(object), text);
            const QDateTime time = QDateTime::fromString(object["time"].toString(), Qt::ISODateWithMs);
            QVERIFY2(time.isValid() && object["time"].toString().endsWith('Z'), text);
            const QString port = object["port"].toString();
            QVERIFY2(!results.contains(port), "the result is the last one of a port");
            if (object["event"] == "progress") {
                QVERIFY2(!lastProgress.contains(port) || lastProgress[port].msecsTo(time) >= 95, text);
                lastProgress[port] = time;
            } else if (object["event"] == "result") {
                results[port] = object;
            }
        }
        std::map<QString, QJsonObject> recorded;
        for (const QJsonObject& object : records()) {
            QVERIFY2(keys(object) == expectedFields(object), QJsonDocument(object).toJson());
            QCOMPARE(object["label"].toString(), "Ä 1");
            QCOMPARE(object["sha256"].toString(),
                QString(QCryptographicHash::hash(contentOf(firmware), QCryptographicHash::Sha256).toHex()));
            QVERIFY(!std::exchange(recorded[object["port"].toString()], object).contains("port"));
        }
        QCOMPARE(recorded.size(), table.size());
        for (std::size_t i = 0; i < table.size(); ++i) {
            const QString port = arguments.at(arguments.size() - 1 - qsizetype(2 * (table.size() - 1 - i)));
            for (const QJsonObject& object : {results[port], recorded[port]}) {
                const QByteArray text = QJsonDocument(object).toJson();
                QVERIFY2(object["outcome"].toString() == table[i].outcome, text);
                QVERIFY2(object["reason"].toString() == table[i].reason, text);
                QVERIFY2(object["erases"].toInt() == table[i].erases, text);
                QVERIFY2(!object.contains("deviceId") || object["previousFirmware"] == "2.2.3", text);
                QVERIFY2(object["explanation"].toString().contains("no valid firmware") ==
                             (table[i].outcome == "failed" && table[i].erases > 0),
                    text);
            }
            QCOMPARE(devices[i]->memory() == burnedMemory(), table[i].outcome == "succeeded");
        }
    }

    void stopsAll()
    {
        Device one({"--fault", "late-start:600000"});
        Device other({"--erase-time", "60000"});
        QProcess program;
        program.start("nohup",
            {TAVIMORA_CLI, "burn", "--record", recordFile, "--port", one.port, "--port", other.port, firmware});
        QByteArray out;
        while (!out.contains("Erasing...") && program.waitForReadyRead(programLimitMs)) {
            out += program.readAllStandardOutput();
        }
        ::kill(static_cast<pid_t>(program.processId()), SIGHUP);
        QVERIFY2(!program.waitForFinished(500), "the end of the terminal stops a burn under nohup");
        ::kill(static_cast<pid_t>(program.processId()), SIGINT);
        const Answer answer = answerOf(program);
        QCOMPARE(answer.status, 130);
        QCOMPARE(records().size(), 2U);
        for (const QJsonObject& object : records()) {
            QCOMPARE(object["outcome"].toString() + ' ' + object["reason"].toString(), "stopped stopped");
        }
    }

    /// Another descriptor of the program must not become standard output, and get the log.
    void closedOutput()
    {
        Device device;
        QProcess program;
        program.start("sh", {"-c", "exec \"$@\" >&-", "sh", TAVIMORA_CLI, "burn", "--port", device.port, firmware});
        const Answer answer = answerOf(program);
        QVERIFY2(answer.status == 0 && answer.error.isEmpty(), answer.error);
        QCOMPARE(device.memory(), burnedMemory());
    }

    /// A burn that has no record is none that counts.
    void lostRecord()
    {
        Device device;
        QVERIFY(write(recordFile, QByteArray(1000, 'x')));
        const Answer answer =
            run("prlimit", {"--fsize=1024", "sh", "-c", "trap '' XFSZ; exec \"$@\"", "sh", TAVIMORA_CLI, "burn",
                               "--record", recordFile, "--port", device.port, firmware});
        QVERIFY2(answer.status == 1 && answer.error.contains("the record \""), answer.error);
        QCOMPARE(device.memory(), burnedMemory());
    }

    /// Compares, burns only what differs, and asks without touching anything.
    void oneDevice()
    {
        Device device;
        const QStringList port = {"--port", device.port};
        const QByteArray blocks = "Data no match 03100:200\nData no match 03300:200\nData no match 03500:200\n"
                                  "Data no match 03700:1d0\nVerification failed: 4 of 4 blocks differ\n";
        const QByteArray inCharge = "\nThe bootloader of the device is in charge\n";
        const Answer info = run(QStringList{"info", "--baudrate", "115200"} + port);
        QVERIFY2(info.status == 0 && info.out.contains("\nDevice id: 0x0300, family 2\n"), info.out);
        QVERIFY(info.out.endsWith(inCharge));
        const Device echoing({"--echo"});
        const Answer behindEcho = run({"info", "--port", echoing.port});
        QVERIFY2(behindEcho.out.contains("\nDevice id: 0x0300, family 2\n"), behindEcho.out);
        const Answer different = run(QStringList{"verify", firmware} + port);
        QVERIFY2(different.status == 1 && different.out.contains(blocks), different.out);
        QVERIFY2(different.out.endsWith(inCharge) && !different.error.contains("valid firmware"), different.error);
        QVERIFY(!contentOf(device.memoryFile).contains('\xFF'));
        QVERIFY(run(QStringList{"burn", "--if-needed", firmware} + port).out.contains("\nErase successful\n"));
        const Answer needless = run(QStringList{"burn", "--if-needed", firmware} + port);
        QVERIFY2(needless.status == 0 && !needless.out.contains("Erasing"), needless.out);
        QVERIFY2(needless.out.contains("\nReset device\n"), needless.out);
        const Answer same = run(QStringList{"verify", "--reset", firmware} + port);
        QVERIFY2(same.status == 0 && same.out.contains("\nReset device\n") && !same.out.endsWith(inCharge), same.out);
        QCOMPARE(device.memory(), burnedMemory());
    }

    void station()
    {
        Device device;
        const QStringList arguments = {"station", "--port", device.port, "--record", recordFile, firmware};
        const Answer good = run(arguments, "SN 1\n\n  SN 1 \r\nSN\t2\nSN 3");
        QCOMPARE(good.status, 0);
        QVERIFY2(good.out.contains("PASS  ====  SN 1   1 passed, 0 failed, yield 100.0 %\n"), good.out);
        QVERIFY2(good.out.contains("PASS  ====  SN 3   2 passed, 0 failed, yield 100.0 %\n"), good.out);
        for (const char* complaint : {"The line is empty", "\"SN 1\" has already passed", "no control characters"}) {
            QVERIFY2(good.error.contains(complaint), complaint);
        }
        QCOMPARE(records().size(), 2U);
        QCOMPARE(records().at(1)["label"].toString(), "SN 3");
        QCOMPARE(device.memory(), burnedMemory());

        Device bad({"--fault", "stuck-bit:0x3100.0=0"});
        const Answer failed =
            run({"station", "--json", "--port", bad.port, "--record", recordFile, "--max-erases", "1", firmware},
                QByteArray(1 << 20, 'x') + "\nSN 4\n");
        QCOMPARE(failed.status, 1);
        QVERIFY2(failed.error.contains("a label has at most 200 characters"), failed.error);
        const QJsonObject verdict = jsonLines(failed.out).back();
        QCOMPARE(keys(verdict), QSet<QString>({"event", "label", "pass", "passed", "failed", "yield"}));
        QVERIFY(!verdict["pass"].toBool(true) && verdict["failed"].toInt() == 1 && verdict["label"] == "SN 4");
        QCOMPARE(records().size(), 3U);
    }

    void refuses_data()
    {
        QTest::addColumn<QStringList>("arguments");
        QTest::addColumn<int>("status");
        QTest::addColumn<QString>("error");
        const auto row = [](const QString& name, const QStringList& arguments, int status, const QString& error) {
            QTest::newRow(name.toLatin1()) << arguments << status << error;
        };
        row("adapter that is not there", {"--port", "usb:ffff:ffff"}, 2, "no port fits \"usb:ffff:ffff\"");
        row("port named twice", {"--port", "PORT"}, 2, "are the same port");
        row("no folder for the record", {"--record", "/nonexistent/record"}, 1, "the record \"/nonexistent/record\": ");
        row("record is a folder", {"--record", "/tmp"}, 1, "it is no regular file");
        row("label of a megabyte", {"--record", "RECORD", "--label", QString(100'000, 'x')}, 2, "at most 200");
        row("label with a control character", {"--record", "RECORD", "--label", "a\x1b[2J"}, 2,
            "no control characters");
        row("label without a record", {"--label", "a"}, 2, "--record, which is missing");
        for (const QString option : {"--stall", "--max-erases", "--timeout"}) {
            row("bad number of " + option, {option, "-1"}, 2, option + " wants a number from ");
        }
    }

    void refuses()
    {
        QFETCH(QStringList, arguments);
        QFETCH(QString, error);
        Device device;
        arguments.replaceInStrings("PORT", device.port).replaceInStrings("RECORD", recordFile);
        const Answer answer = run(QStringList{"burn", "--json", firmware, "--port", device.port} + arguments);
        QTEST(answer.status, "status");
        QVERIFY2(answer.error.contains(error.toUtf8()), answer.error);
        QVERIFY2(answer.out.isEmpty(), answer.out);
        QCOMPARE(device.memory(), QByteArray(0x10000, '\0'));
    }
};

QTEST_GUILESS_MAIN(ProductionTest)
#include "ProductionTest.moc"
