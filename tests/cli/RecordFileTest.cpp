#include "cli/RecordFile.h"

#include "tests/support/Program.h"

#include <QTemporaryDir>
#include <QTest>

#include <thread>
#include <vector>

class RecordFileTest : public QObject
{
    Q_OBJECT

    const QTemporaryDir folder;
    const QString path = folder.filePath("record");

private Q_SLOTS:
    void init() { QFile::remove(path); }

    void appends()
    {
        RecordFile record(path);
        QCOMPARE(record.open(), QString());
        QCOMPARE(contentOf(path), QByteArray());
        QCOMPARE(record.append("one"), QString());
        QFile torn(path);
        QVERIFY(torn.open(QIODevice::Append) && torn.write("half") == 4);
        torn.close();
        QCOMPARE(record.append("two"), QString());
        QCOMPARE(record.append("three"), QString());
        QCOMPARE(contentOf(path), QByteArray("one\nhalf\ntwo\nthree\n"));
    }

    void severalWriters()
    {
        constexpr int lines = 8;
        std::vector<std::thread> threads;
        for (const char writer : QByteArray("abcdefgh")) {
            threads.emplace_back([this, writer] {
                RecordFile record(path);
                record.open();
                for (int line = 0; line < lines; ++line) {
                    record.append(QByteArray(5000, writer));
                }
            });
        }
        for (std::thread& thread : threads) {
            thread.join();
        }
        const QByteArrayList found = contentOf(path).split('\n');
        QCOMPARE(found.size(), 8 * lines + 1);
        for (const QByteArray& line : found.first(8 * lines)) {
            QCOMPARE(line, QByteArray(5000, line[0]));
        }
    }
};

QTEST_GUILESS_MAIN(RecordFileTest)
#include "RecordFileTest.moc"
