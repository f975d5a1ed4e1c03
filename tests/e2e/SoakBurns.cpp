// Burns simulated devices over pseudo-terminals, many at once and for a long time, with faults, stops and hang-ups at
// random, and checks after each burn that the program has told the truth, and at the end that nothing has piled up in
// the process.

#include "burn/BurnMessageEvent.h"
#include "burn/BurnThread.h"
#include "firmware/FirmwareFile.h"
#include "support/CommandLine.h"
#include "tests/support/IntelHex.h"
#include "tools/devicesim/DeviceSim.h"
#include "tools/fwpack/Package.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QEventLoop>
#include <QFile>
#include <QTemporaryDir>
#include <QTimer>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <map>
#include <random>
#include <span>

#include <malloc.h>

/// There with a sanitizer only.
extern "C" std::size_t __sanitizer_get_current_allocated_bytes() __attribute__((weak));

namespace
{

using namespace devicesim;
using namespace std::chrono_literals;
using std::chrono::milliseconds;
using Outcome = BurnThread::Outcome;
using Folder = std::filesystem::directory_iterator;

/// A burn that has not ended by then is stopped.
constexpr milliseconds longestBurn = 120s;
/// A stopped burn has ended by then, also on a machine with other work.
constexpr milliseconds longestStop = 20s;
/// How much more heap may be in use at the end than after the first burns: what allocators keep at hand comes and goes.
/// A burn that left 128 bytes behind would pass this in 1000 burns.
constexpr std::size_t heapSlack = 128 * 1024;
/// Qt keeps the room of the longest queue of events that there was, so one as long as this is made at first.
constexpr int longestQueue = 200'000;

/// What is drawn for a burn.
struct Plan {
    explicit Plan(std::uint64_t seed)
        : generator(seed)
    {
        const unsigned kind = below(10);
        isClean = kind < 3;
        device.seed = seed;
        device.echo = below(4) == 0;
        device.lateTime = milliseconds(50 + below(650));
        device.memory.resize(Memory::size);
        // All faults by chance but a hang-up and another device.
        for (double& probability : std::span(device.faults.probabilities).first(indexOf(Fault::Swap))) {
            probability = isClean || below(2) == 0 ? 0 : 0.0005 * below(100);
        }
        if (!isClean && below(8) == 0) {
            device.faults.stuckBits = {{std::uint16_t(0x3100 + below(0x800)), int(below(8)), below(2) == 0}};
        }
        if (kind >= 7) {
            stopAfter = milliseconds(below(8000));
        }
        if (kind == 9) {
            device.faults.placed = {{Fault::HangUp, RequestKind(below(requestNames.size())), 1 + int(below(3)), {}}};
            stopAfter += 4s;
        }
        for (unsigned address = 0x3100, blocks = 2 + below(11); blocks > 0; --blocks, address += 0x400) {
            image.emplace_back(address, QByteArray(1 + below(512), '\0'));
            std::ranges::generate(image.back().second, [this] { return char(below(256)); });
        }
    }

    unsigned below(unsigned limit) { return unsigned(generator() % limit); }

    std::mt19937_64 generator;
    DeviceConfig device;
    /// The slow rates keep the processor free: for 3 s of a burn the device is asked as fast as the line lets it be.
    std::int32_t baudrate = std::array{9600, 19200, 57600}.at(below(3));
    std::vector<std::pair<unsigned, QByteArray>> image;
    bool isClean = false;
    milliseconds stopAfter = longestBurn;
};

/// What came of all burns.
struct Tally {
    std::map<Outcome, int> outcomes;
    int falseBad = 0, findings = 0;
    qint64 slowestStopMs = 0;
};

/// Makes burns one after the other.
class Lane : public QObject
{
public:
    /// Calls `whenFree` after each burn.
    Lane(const QString& firmwareFile, Tally& all, const std::function<void(Lane&)>& whenFree)
        : file(firmwareFile)
        , tally(all)
    {
        timer.setSingleShot(true);
        connect(&timer, &QTimer::timeout, this, &Lane::stop);
        connect(&thread, &QThread::finished, this, [this, whenFree] {
            thread.wait();
            timer.stop();
            check();
            whenFree(*this);
        });
    }

    void burn(std::uint64_t burnSeed)
    {
        seed = burnSeed;
        plan.emplace(seed);
        device.emplace(plan->device);
        log.clear();
        sinceStop.invalidate();
        QFile firmware(file);
        const bool made = firmware.open(QIODevice::WriteOnly) &&
                          firmware.write(fwpack::makePackage(
                              {0x0300, "1.2", "Board", plan->baudrate, plan->device.echo ? FirmwareFile::echoLink : 0},
                              hexText(plan->image))) > 0;
        require(device->start() && made, "no device or no firmware file");
        firmware.close();
        thread.startJob({.portName = QString::fromStdString(device->portName()), .fileName = file, .maxErases = 3});
        timer.start(plan->stopAfter);
    }

protected:
    void customEvent(QEvent* event) override
    {
        if (event->type() == BurnMessageEvent::eventType) {
            log += static_cast<const BurnMessageEvent&>(*event).text;
        }
    }

private:
    /// Prints and counts what must not be.
    void require(bool holds, const char* what, int& count)
    {
        if (!holds) {
            ++count;
            std::printf("--burns 1 --seed %llu: %s; the end of its log:\n  %s\n", static_cast<unsigned long long>(seed),
                what, qPrintable(log.mid(std::max<qsizetype>(log.size() - 12, 0)).join("\n  ")));
            std::fflush(stdout);
        }
    }
    void require(bool holds, const char* what) { require(holds, what, tally.findings); }

    void stop()
    {
        if (sinceStop.isValid()) {
            require(false, "does not end after a stop");
            std::_Exit(1);
        }
        sinceStop.start();
        thread.requestStop();
        timer.start(longestStop);
    }

    void check()
    {
        const auto memory = device->memory();
        device.reset();
        const bool equal = std::ranges::all_of(plan->image, [&](const auto& block) {
            return std::memcmp(memory.data() + block.first, block.second.data(), std::size_t(block.second.size())) == 0;
        });
        const Outcome outcome = thread.outcome();
        const bool saidGood = log.contains("Verification successful");
        const bool stopped = sinceStop.isValid();
        tally.slowestStopMs = std::max(tally.slowestStopMs, stopped ? sinceStop.elapsed() : 0);
        ++tally.outcomes[outcome];
        require(!equal || thread.result().reason != BurnResult::Reason::Verification, "failed with the memory right",
            tally.falseBad);
        require(equal || !saidGood, "FALSE GOOD");
        // A stop may come between the last comparison and the reset.
        require(outcome == Outcome::Cancelled ? stopped : saidGood == (outcome == Outcome::Succeeded),
            "ends otherwise than it says");
        require(outcome == Outcome::Succeeded || !plan->isClean, "has not succeeded without any fault");
    }

    const QString file;
    Tally& tally;
    std::uint64_t seed = 0;
    std::optional<Plan> plan;
    std::optional<DeviceSim> device;
    BurnThread thread{this};
    QTimer timer;
    QElapsedTimer sinceStop;
    QStringList log;
};

/// What the process has in use.
struct Resources {
    std::ptrdiff_t descriptors = std::distance(Folder("/proc/self/fd"), {});
    std::ptrdiff_t threads = std::distance(Folder("/proc/self/task"), {});
    std::size_t heap = __sanitizer_get_current_allocated_bytes != nullptr ? __sanitizer_get_current_allocated_bytes()
                                                                          : mallinfo2().uordblks;
};

} // namespace

int main(int argc, char** argv)
{
    const QCoreApplication application(argc, argv);
    CommandLine line("SoakBurns", "[OPTION]...",
        "Burns simulated devices over pseudo-terminals, with faults, stops and hang-ups at random, and checks after "
        "each burn that the program has told the truth, and at the end that nothing has piled up since the first.");
    line.addOption("burns", "N", "Make N burns (default 40).");
    line.addOption("at-once", "N", "So many of them at once (default 16).");
    line.addOption("seed", "N", "Random seed of the first burn (default 1); each of the others has the next.");
    line.parse(application.arguments().mid(1));
    const auto atOnce = line.number<std::uint32_t>("at-once", 1, 1000).value_or(16);
    const auto first = line.number<std::uint32_t>("seed", 0, UINT32_MAX).value_or(1);
    const std::uint64_t last = first + line.number<std::uint32_t>("burns", 1, UINT32_MAX).value_or(40);
    const std::uint64_t warm = std::min<std::uint64_t>(last, first + std::max(atOnce, 10U));
    line.operands(0, "no arguments");
    if (const auto verdict = line.verdict()) {
        return static_cast<int>(*verdict);
    }

    const QTemporaryDir folder;
    QElapsedTimer clock;
    clock.start();
    Tally tally;
    QEventLoop loop;
    std::uint64_t next = first;
    std::uint64_t pause = 0;
    unsigned resting = 0;
    const auto keepBusy = [&](Lane& lane) {
        if (next < pause) {
            lane.burn(next++);
        } else if (++resting == atOnce) {
            loop.quit();
        }
    };
    std::vector<std::unique_ptr<Lane>> lanes;
    for (unsigned i = 0; i < atOnce; ++i) {
        lanes.push_back(std::make_unique<Lane>(folder.filePath(QString::number(i)), tally, keepBusy));
    }
    const auto burnUntil = [&](std::uint64_t end) {
        pause = end;
        resting = 0;
        std::ranges::for_each(lanes, [&](auto& lane) { keepBusy(*lane); });
        if (resting < atOnce) {
            loop.exec();
        }
        QThread::sleep(1); // a thread that has ended is still listed for a moment
        const Resources used;
        std::printf("after %llu burns: %td descriptors, %td threads, %zu bytes of heap in use\n",
            static_cast<unsigned long long>(next - first), used.descriptors, used.threads, used.heap);
        return used;
    };
    for (int i = 0; i < longestQueue; ++i) {
        QCoreApplication::postEvent(&loop, new QEvent(QEvent::User));
    }
    QCoreApplication::sendPostedEvents();
    const Resources before = burnUntil(warm);
    const Resources after = burnUntil(last);
    if (last == warm) {
        std::printf("too few burns to tell whether anything piles up\n");
    }
    if (after.descriptors > before.descriptors || after.threads > before.threads ||
        after.heap > before.heap + heapSlack) {
        ++tally.findings;
        std::printf("more is in use at the end\n");
    }
    const int succeeded = tally.outcomes[Outcome::Succeeded];
    std::printf(
        "in %lld s: %d succeeded, %d failed, %d of them with the memory right, %d cancelled, slowest stop %lld ms, "
        "%d findings\n",
        clock.elapsed() / 1000, succeeded, tally.outcomes[Outcome::Failed], tally.falseBad,
        tally.outcomes[Outcome::Cancelled], tally.slowestStopMs, tally.findings);
    return tally.findings == 0 && succeeded > 0 ? 0 : 1;
}
