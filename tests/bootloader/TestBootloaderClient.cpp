#include "bootloader/BootTables.h"
#include "bootloader/BootloaderClient.h"
#include "tests/support/ScriptedPort.h"

#include <QTest>

using Bytes = ScriptedLine::Bytes;
using Reply = ScriptedLine::Reply;
using std::chrono::milliseconds;

namespace
{
Bytes bytes(const char* hex)
{
    const QByteArray decoded = QByteArray::fromHex(hex);
    return {decoded.begin(), decoded.end()};
}

/// A client on a scripted line, opened, whose device gives a fixed answer.
struct Link {
    std::shared_ptr<ScriptedLine> line = std::make_shared<ScriptedLine>();
    BootloaderClient client{std::make_unique<ScriptedPort>(line), line->clock()};

    explicit Link(const Reply& reply = {}, std::uint32_t baudRate = 57600)
    {
        line->device = [reply](const Bytes&) { return reply; };
        if (!client.open("scripted", baudRate))
            qFatal("the scripted line did not open");
    }

    milliseconds sinceSent() const { return std::chrono::round<milliseconds>(line->now - line->sent); }
};
} // namespace

class TestBootloaderClient : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void requests_data();
    void requests();
};

void TestBootloaderClient::requests_data()
{
    using Call = std::function<void(BootloaderClient&)>;
    QTest::addColumn<Call>("call");
    QTest::addColumn<QByteArray>("request");

    const auto row = [](const char* name, const Call& call, const char* request) {
        QTest::newRow(name) << call << QByteArray(request);
    };
    row(
        "version", [](auto& c) { c.readVersion(); }, "80 1E 00 00 00 00 7F E1");
    row(
        "ping", [](auto& c) { QVERIFY(c.ping()); }, "80 1C F0 FF 01 00 8E 1C");
    row(
        "erase", [](auto& c) { c.eraseMemory(); }, "80 16 00 FF 06 A5 79 B3");
    row(
        "blank check", [](auto& c) { c.blankCheck(0x3100, 512); }, "80 1C 00 31 00 01 7F D3");
    row(
        "write odd",
        [](auto& c) {
            c.writeBlock(0x3100, {0x11, 0x22, 0x33});
        },
        "80 12 00 31 02 00 11 22 33 FF 5F 01");
    row(
        "read", [](auto& c) { c.readBlock(0x3100, 512); }, "80 14 00 31 00 01 7F DB");
    row(
        "reset", [](auto& c) { QVERIFY(c.resetDevice(0)); }, "80 1A 00 00 00 00 7F E5");
}

void TestBootloaderClient::requests()
{
    QFETCH(const std::function<void(BootloaderClient&)>, call);
    QFETCH(const QByteArray, request);
    Link link;
    call(link.client);
    QCOMPARE(link.line->requests.size(), std::size_t(1));
    QCOMPARE(link.line->requests.front(), bytes(request.constData()));
}

QTEST_GUILESS_MAIN(TestBootloaderClient)
#include "TestBootloaderClient.moc"
