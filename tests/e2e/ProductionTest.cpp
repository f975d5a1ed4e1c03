#include "tests/e2e/SimulatedDevice.h"

#include <QCryptographicHash>
#include <QDateTime>
#include <QJsonDocument>
#include <QJsonObject>
#include <QTest>

#include <csignal>
#include <map>
#include <memory>
#include <vector>

namespace
{

const Image image = {{0x3100, QByteArray(2000, 'c')}};

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

/// The fields that tavimora-cli(1) promises, in alphabetical order, for each event; for a record the event is "".
const std::map<QString, QString> promisedFields = {
    {"state", "event port state time"},
    {"progress", "event maximum minimum port state time value"},
    {"log", "event port text time"},
    {"error", "event port text time"},
    {"result", "badBlocks blocks erases event explanation outcome port reason seconds time"},
    {"verdict", "event failed label pass passed yield"},
    {"", "adapterSerial badBlocks blocks erases explanation file finished label outcome port program reason seconds "
         "sha256 started target version"},
};

/// Whether an object has the fields that it has to have. What is known of a device stands there together or not at all.
bool hasPromisedFields(QJsonObject object)
{
    const bool ofDevice = object.contains("deviceId");
    for (const char* field : {"bootloaderVersion", "deviceFamily", "deviceId", "previousFirmware"}) {
        if (object.contains(field) != ofDevice) {
            return false;
        }
        object.remove(field);
    }
    const auto promised = promisedFields.find(object.value("event").toString());
    return promised != promisedFields.end() && object.keys().join(' ') == promised->second;
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
    void initTestCase() { QVERIFY(writeFirmware(firmware, image)); }

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
            QVERIFY2(hasPromisedFields(object), text);
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
            QVERIFY2(hasPromisedFields(object), QJsonDocument(object).toJson());
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
            QCOMPARE(devices[i]->memory() == memoryWith(image), table[i].outcome == "succeeded");
            QCOMPARE(devices[i]->memory() == devices[i]->untouched, table[i].erases == 0);
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
        QCOMPARE(device.memory(), memoryWith(image));
    }

    /// A burn that has no record is none that counts.
    void lostRecord()
    {
        Device device;
        QVERIFY(write(recordFile, QByteArray(1000, 'x')));
        const Answer answer =
            run("prlimit", {"--fsize=1024", "sh", "-c", "trap '' XFSZ; exec \"$@\"", "sh", TAVIMORA_CLI, "burn",
                               "--record", recordFile, "--port", device.port, firmware});
        QVERIFY2(answer.status == 1 && answer.error.contains("record\": there is no room"), answer.error);
        QVERIFY2(contentOf(recordFile) == QByteArray(1000, 'x'), "a record that did not fit left something of itself");
        QCOMPARE(device.memory(), memoryWith(image));
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
        const Device silent({"--fault", "hangup@read"});
        const Answer given = run({"verify", "--stall", "2", "--port", silent.port, firmware});
        QVERIFY2(given.status == 4 && given.error.contains("Gave up in Verifying"), given.error);
        QVERIFY(run(QStringList{"burn", "--if-needed", firmware} + port).out.contains("\nErase successful\n"));
        const Answer needless = run(QStringList{"burn", "--if-needed", firmware} + port);
        QVERIFY2(needless.status == 0 && !needless.out.contains("Erasing"), needless.out);
        QVERIFY2(needless.out.contains("\nReset device\n"), needless.out);
        const Answer same = run(QStringList{"verify", "--reset", firmware} + port);
        QVERIFY2(same.status == 0 && same.out.contains("\nReset device\n") && !same.out.endsWith(inCharge), same.out);
        QCOMPARE(device.memory(), memoryWith(image));
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
        QCOMPARE(device.memory(), memoryWith(image));

        Device bad({"--fault", "stuck-bit:0x3100.0=0"});
        const Answer failed =
            run({"station", "--json", "--port", bad.port, "--record", recordFile, "--max-erases", "1", firmware},
                QByteArray(1 << 20, 'x') + "\nSN 4\n");
        QCOMPARE(failed.status, 1);
        QVERIFY2(failed.error.contains("a label has at most 200 characters"), failed.error);
        const QJsonObject verdict = jsonLines(failed.out).back();
        QVERIFY(hasPromisedFields(verdict));
        QVERIFY(!verdict["pass"].toBool(true) && verdict["failed"].toInt() == 1 && verdict["label"] == "SN 4");
        QCOMPARE(records().size(), 3U);
    }
};

QTEST_GUILESS_MAIN(ProductionTest)
#include "ProductionTest.moc"
