#include "cli/RecordFile.h"

#include "tests/support/Program.h"

#include <QTemporaryDir>
#include <QTest>

#include <csignal>
#include <thread>
#include <vector>

#ifndef Q_OS_WIN
#include <sys/resource.h>
#endif

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

    /// A line that does not fit leaves nothing of itself.
    void fullDisk()
    {
#ifdef Q_OS_WIN
        QSKIP("Files have no limit there");
#else
        RecordFile record(path);
        QVERIFY(record.open().isEmpty() && record.append(QByteArray(90, 'x')).isEmpty());
        const auto handlerBefore = std::signal(SIGXFSZ, SIG_IGN);
        rlimit before{};
        ::getrlimit(RLIMIT_FSIZE, &before);
        const rlimit full{100, before.rlim_max};
        ::setrlimit(RLIMIT_FSIZE, &full);
        const QString problem = record.append(QByteArray(50, 'y'));
        ::setrlimit(RLIMIT_FSIZE, &before);
        std::signal(SIGXFSZ, handlerBefore);
        QVERIFY(!problem.isEmpty());
        QCOMPARE(contentOf(path), QByteArray(90, 'x') + '\n');
        QCOMPARE(record.append("z"), QString());
#endif
    }

    void severalWriters()
    {
        constexpr int writers = 8;
        constexpr int lines = 8;
        std::vector<std::thread> threads;
        for (int writer = 0; writer < writers; ++writer) {
            threads.emplace_back([this, writer] {
                RecordFile record(path);
                record.open();
                for (int line = 0; line < lines; ++line) {
                    record.append(QByteArray(5000, char('a' + writer)));
                }
            });
        }
        for (std::thread& thread : threads) {
            thread.join();
        }
        const QByteArrayList found = contentOf(path).split('\n');
        QCOMPARE(found.size(), writers * lines + 1);
        for (const QByteArray& line : found.first(writers * lines)) {
            QCOMPARE(line, QByteArray(5000, line[0]));
        }
    }
};

QTEST_GUILESS_MAIN(RecordFileTest)
#include "RecordFileTest.moc"
