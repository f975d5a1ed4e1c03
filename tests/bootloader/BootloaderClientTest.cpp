#include "bootloader/BootloaderClient.h"

#include "bootloader/BootTables.h"
#include "tests/support/ScriptedPort.h"

#include <QTest>

using Bytes = ScriptedLine::Bytes;
using std::chrono::milliseconds;

/// One operation of the client, and its result in words or in hexadecimal digits.
using Call = std::function<QByteArray(BootloaderClient&)>;

namespace
{

Bytes bytes(const char* digits)
{
    const QByteArray decoded = QByteArray::fromHex(digits);
    return {decoded.begin(), decoded.end()};
}

QByteArray hex(const Bytes& data)
{
    return QByteArray(reinterpret_cast<const char*>(data.data()), qsizetype(data.size())).toHex(' ').toUpper();
}

QByteArray identity(const BootloaderClient& client)
{
    const auto& [boot, firmware] = std::tie(client.bootloaderVersion, client.firmwareVersion);
    return hex({boot.major, boot.minor, boot.patch, firmware.major, firmware.minor, firmware.patch}) +
           QString::asprintf(" / %x %x %x", client.deviceId, client.codeStart, client.codeEnd).toLatin1();
}

QByteArray words(BootAnswer answer)
{
    return !answer.answered ? "unanswered" : answer.blank ? "blank" : "not blank";
}

const auto yesNo = [](bool yes) { return QByteArray(yes ? "yes" : "no"); };
const Call ping = [](auto& client) { return yesNo(client.ping()); };
const Call eraseMemory = [](auto& client) { return yesNo(client.eraseMemory()); };
const Call resetDevice = [](auto& client) { return yesNo(client.resetDevice(0)); };
const Call readVersion = [](auto& client) { return client.readVersion() ? identity(client) : "no"; };
const auto blankCheck = [](auto at, auto n) -> Call { return [=](auto& c) { return words(c.blankCheck(at, n)); }; };
const auto readBlock = [](auto at, auto n) -> Call { return [=](auto& c) { return hex(c.readBlock(at, n)); }; };
const auto writeBlock = [](auto at, Bytes data) -> Call {
    return [=](auto& c) { return yesNo(c.writeBlock(at, data)); };
};

/// A client on an open scripted line, whose device answers each request alike.
struct Link {
    std::shared_ptr<ScriptedLine> line = std::make_shared<ScriptedLine>();
    BootloaderClient client{std::make_unique<ScriptedPort>(line), line->clock()};

    explicit Link(const Bytes& reply = {}, milliseconds after = {})
    {
        client.open("scripted", 57600);
        answer(reply, after);
    }

    void answer(const Bytes& reply, milliseconds after = {})
    {
        line->device = [=](const Bytes&) { return ScriptedLine::Reply{reply, after}; };
    }

    /// Lets the device answer reads with 01 02 and version requests with three words of 0, and confirm everything else.
    void obey(milliseconds after = {})
    {
        line->device = [=](const Bytes& request) {
            const Bytes data = ScriptedLine::dataReply({1, 2}).bytes;
            const Bytes version = ScriptedLine::dataReply(Bytes(6)).bytes;
            return ScriptedLine::Reply{request[1] == 0x14 ? data : request[1] == 0x1E ? version : Bytes{0x90}, after};
        };
    }

    /// Makes a call, and tells how long after the request it ended.
    int waited(const Call& call)
    {
        call(client);
        return static_cast<int>(std::chrono::round<milliseconds>(line->now - line->sent).count());
    }
};

} // namespace

class BootloaderClientTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void requests_data()
    {
        QTest::addColumn<Call>("call");
        QTest::addColumn<QByteArray>("request");
        QTest::addColumn<int>("deadline");

        const auto row = [](const char* name, int deadline, const Call& call, const char* request) {
            QTest::newRow(name) << call << QByteArray(request) << deadline;
        };
        row("version", 25, readVersion, "80 1E 00 00 00 00 7F E1");
        row("ping", 100, ping, "80 1C F0 FF 01 00 8E 1C");
        row("erase", 300, eraseMemory, "80 16 00 FF 06 A5 79 B3");
        row("reset", 25, resetDevice, "80 1A 00 00 00 00 7F E5");
        row("blank check", 100, blankCheck(0x3100, 512), "80 1C 00 31 00 01 7F D3");
        row("blank check, odd", 100, blankCheck(0x3100, 5), "80 1C 00 31 02 00 7D D2");
        row("blank check, too long", 0, blankCheck(0, 0x20000), "");
        row("read", 300, readBlock(0x3100, 512), "80 14 00 31 00 01 7F DB");
        row("read, odd", 300, readBlock(0x23100, 5), "80 14 00 31 03 00 7C DA");
        row("read, too long", 0, readBlock(0, UINT64_MAX), "");
        row("write, odd", 300, writeBlock(0x3100, {0x11, 0x22, 0x33}), "80 12 00 31 02 00 11 22 33 FF 5F 01");
        row("write, least", 300, writeBlock(0x3100, {}), "80 12 00 31 00 00 7F DC");
        row("write, too long", 0, writeBlock(0, Bytes(0x1FFFF)), "");
    }

    /// What goes out, and how long the client waits in silence, in noise and after a cancel.
    void requests()
    {
        QFETCH(const Call, call);
        QFETCH(const int, deadline);
        Link link;
        QCOMPARE(link.waited(call), (deadline + 99) / 100 * 100);
        QTEST(link.line->requests.empty() ? QByteArray() : hex(link.line->requests.front()), "request");
        link.answer(Bytes(3000, 0x55));
        QTEST(link.waited(call), "deadline");
        link.client.rejectReply();
        link.client.cancel();
        const auto before = link.line->now;
        call(link.client);
        QVERIFY2(link.line->now - before <= milliseconds(300), "a cancelled exchange ends within its deadline");
        QCOMPARE(findDeadline(BootCommand{0x42}), milliseconds(200));
    }

    void replies_data()
    {
        QTest::addColumn<Call>("call");
        QTest::addColumn<Bytes>("reply");
        QTest::addColumn<QByteArray>("result");

        const auto row = [](const char* name, const Call& call, const Bytes& reply, const QByteArray& result) {
            QTest::newRow(name) << call << reply << result;
        };
        row("blank", blankCheck(0, 16), {0x90}, "blank");
        row("not blank", blankCheck(0, 16), {0x70}, "not blank");
        row("blank check refused", blankCheck(0, 16), {0xA0}, "unanswered");
        row("erased", eraseMemory, {0x90}, "yes");
        row("erase refused", eraseMemory, {0xA0}, "no");
        row("noise before the status", eraseMemory, {0x00, 0x55, 0x90}, "yes");
        row("a stray 80 is a data reply", eraseMemory, {0x80, 0x90, 0x90, 0x90, 0x90}, "no");
        row("read", readBlock(0, 4), bytes("80 12 34 56 02 00 AA BB CC DD 2F DD"), "AA BB CC DD");
        row("read, the device's length", readBlock(0, 512), bytes("80 00 00 00 01 00 AA BB D4 44"), "AA BB");
        row("read, checksum swapped", readBlock(0, 2), bytes("80 00 00 00 01 00 AA BB 44 D4"), "AA BB");
        row("read, data short", readBlock(0, 2), bytes("80 00 00 00 01 00 AA BB D4"), "");
        row("read, a bit flipped", readBlock(0, 2), bytes("80 00 00 00 01 00 AA BA D4 44"), "");
        row("read, longest", readBlock(0, 2038), ScriptedLine::dataReply(Bytes(2038, 7)).bytes, hex(Bytes(2038, 7)));
        row("read, too long", readBlock(0, 2040), ScriptedLine::dataReply(Bytes(2040, 7)).bytes, "");
        row("version", readVersion, ScriptedLine::dataReply(bytes("42 10 C5 2F 01 03")).bytes,
            "01 01 02 02 3F 05 / 301 3100 1ffff");
        row("version, unknown device", readVersion, ScriptedLine::dataReply(bytes("FF FF 01 01 00 04 99 99")).bytes,
            "0F 3F 3F 00 04 01 / 400 3100 ffff");
        row("version, short", readVersion, ScriptedLine::dataReply({1, 2}).bytes, "00 00 00 00 00 00 / 1234 0 0");
    }

    void replies()
    {
        QFETCH(const Call, call);
        QFETCH(const Bytes, reply);
        Link link(bytes("80 00 00 00 01 00 AA BB D4 44"));
        link.client.open("scripted", 921600);
        QCOMPARE(link.client.readBlock(0, 2), bytes("AA BB"));
        link.client.deviceId = 0x1234;
        link.answer(reply);
        QTEST(call(link.client), "result");
    }

    void unansweredProbe()
    {
        Link link;
        QVERIFY(!link.client.writeBlock(0, {1, 2}));
        // The echo of the question, and a damaged reply that leaves what looks like the answer to the next question.
        const char* const echo = "80 1E 00 00 00 00 7F E1";
        const char* const damaged = "80 00 00 00 01 00 90 90 00 00 80 00 00 00 03 00 00 00 00 00 00 00 7C FF";
        for (const char* reply : {"", "90", "A0", echo, damaged, ""}) {
            link.answer(bytes(reply));
            const std::size_t before = link.line->requests.size();
            QVERIFY2(!link.client.writeBlock(2, {1, 2}), "what came could be the answer to the first write");
            QCOMPARE(link.line->requests.size(), before + 1);
            QCOMPARE(link.line->requests.back()[1], std::uint8_t{0x1E});
        }
        link.obey();
        QVERIFY(link.client.writeBlock(2, {1, 2}));
    }

    /// A version reply tells who was there when it was asked for.
    void lateVersion()
    {
        Link link;
        link.line->device = [](const Bytes& request) {
            const Bytes version = ScriptedLine::dataReply(Bytes(6)).bytes;
            return ScriptedLine::Reply{request[1] == 0x1E ? version : Bytes(), milliseconds(250)};
        };
        for (const std::uint32_t address : {0U, 2U, 2U}) {
            QVERIFY(!link.client.writeBlock(address, {1, 2}));
        }
        QVERIFY2(link.line->requests.size() == 5 && link.line->requests[3][1] == 0x1E, "repeated without a question");
    }

    /// A status does not tell who gives it: without a version a device that may be another one is left alone.
    void unknownDevice()
    {
        Link link;
        ScriptedLine::Time lastRead{0};
        link.line->device = [&](const Bytes& request) {
            lastRead = request[1] == 0x14 ? link.line->now : lastRead;
            return ScriptedLine::Reply{request[1] == 0x1C ? Bytes{0x90} : Bytes()};
        };
        while (link.line->now < std::chrono::seconds(6)) {
            QVERIFY(link.client.readBlock(0, 6).empty());
        }
        QVERIFY(lastRead < std::chrono::seconds(2));

        Link awake;
        awake.obey();
        QVERIFY(awake.client.writeBlock(0, {1, 2}));
        awake.line->now += std::chrono::seconds(3);
        QVERIFY(awake.client.ping() && awake.client.writeBlock(2, {1, 2}));
        QCOMPARE(awake.line->requests.end()[-2][1], std::uint8_t{0x1E});

        Link late;
        late.obey(milliseconds(500));
        QVERIFY(QTest::qWaitFor([&] { return late.client.readVersion(); }));
        late.obey();
        late.line->now += milliseconds(1200);
        QVERIFY(late.client.writeBlock(0, {1, 2}));
        QCOMPARE(late.line->requests.end()[-2][1], std::uint8_t{0x1E});
    }

    /// Who answers later than the question before was answered may be another device.
    void lateAnswers()
    {
        const std::vector<std::pair<std::vector<int>, bool>> cases = {
            {{-1, -1, 0, -1, 250, 0, 0}, false}, {{-1, -1, 0, 0, 250, 0, 0}, true}, {{0, -1, 0, 250, 0, 0}, false}};
        for (const auto& [delays, writes] : cases) {
            Link link;
            link.obey();
            link.line->device = [&, obedient = link.line->device](auto& request) {
                const int after = delays.at(link.line->requests.size() - 1);
                return ScriptedLine::Reply{after < 0 ? Bytes() : obedient(request).bytes, milliseconds(after)};
            };
            for (int call = 0; link.line->requests.size() < delays.size() - 1; ++call) {
                link.client.expectEqualReply();
                const Call next = call == 2 && writes ? writeBlock(4, {1, 2}) : readBlock(call == 0 ? 0 : 2, 2);
                next(link.client);
            }
            QCOMPARE(link.line->requests.at(delays.size() - 2)[1], std::uint8_t{0x1E});
        }
    }

    /// Delays up to the limit of a probe and beyond it neither stall the client nor mislead it.
    void slowLinks()
    {
        const std::vector<std::pair<Call, QByteArray>> calls = {{readVersion, "00 00 00 00 00 00 / 0 3100 ffff"},
            {eraseMemory, "yes"}, {blankCheck(0, 2), "blank"}, {writeBlock(0, {1, 2}), "yes"},
            {writeBlock(2, {1, 2}), "yes"}, {readBlock(0, 2), "01 02"}, {readBlock(2, 2), "01 02"}};
        for (const int delayMs : {110, 190, 290, 350}) {
            Link link;
            link.obey(milliseconds(delayMs));
            for (const auto& [call, result] : calls) {
                QByteArray got;
                for (int attempt = 0; got != result && attempt < 10; ++attempt) {
                    got = call(link.client);
                    QVERIFY2(QByteArrayList({result, "", "no", "unanswered"}).contains(got), got);
                }
                QCOMPARE(got, result);
            }
        }
    }

    void damagedReply()
    {
        Link link(bytes("80 00 00 00 01 00 90 90 00 00 55 90"));
        QVERIFY(link.client.readBlock(0, 2).empty());
        QCOMPARE(link.line->input.size(), std::size_t{2});
        link.line->deliver({Bytes(100'000)});
        const auto flood = link.line->now;
        link.client.rejectReply();
        QVERIFY2(link.line->now - flood < milliseconds(1000), "ends on a line that is never silent");
    }

    void echo()
    {
        Link link({0x90});
        link.client.echoOn = link.line->echo = true;
        QVERIFY(link.client.writeBlock(0, Bytes(512, 0xA0)));
        QVERIFY(link.line->input.empty());
        link.line->writable = 0;
        link.line->deliver({{0x90}});
        QVERIFY2(link.client.eraseMemory(), "nothing sent, no echo to drop, and still a status to wait for");
        link.line->writable = SIZE_MAX;
        link.line->echo = false;
        link.answer(Bytes(7, 0x90));
        QCOMPARE(link.waited(eraseMemory), 600); // two times three reads for the eighth byte, and no wait for a status
    }

    void slowLines()
    {
        Link link;
        const auto limits = [&](std::uint32_t baudRate) {
            link.client.open("scripted", baudRate);
            return std::pair(link.line->opened.writeTimeoutMs, link.line->opened.readTimeoutMs);
        };
        for (const std::uint32_t full : {0U, 57600U, 921600U, UINT32_MAX}) {
            QCOMPARE(limits(full), std::pair(500U, 100U));
        }
        QCOMPARE(limits(1), std::pair(28'800'000U, 5'760'000U));
        QCOMPARE(limits(56000), std::pair(515U, 103U));
        QCOMPARE(limits(9600), std::pair(3000U, 600U));
        QVERIFY(link.line->opened.portName == "scripted" && link.line->opened.baudRate == 9600);
        link.answer(ScriptedLine::dataReply(Bytes(512)).bytes);
        QCOMPARE(link.client.readBlock(0, 512), Bytes(512));
        link.client.open("scripted", 600);
        for (int writes = 0; writes < 3; ++writes) {
            link.obey();
            QVERIFY(link.client.writeBlock(0, Bytes(512)));
            link.answer({});
            QVERIFY2(!link.client.writeBlock(2, Bytes(512)), "a question follows, which takes longer than an exchange");
        }
    }
};

QTEST_GUILESS_MAIN(BootloaderClientTest)
#include "BootloaderClientTest.moc"
