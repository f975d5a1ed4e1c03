// Burns on a scripted device in virtual time with every placement of up to N faults over the requests of a burn, or
// with faults at random, and checks after each that the program has told the truth. A request has one fault at most.

#include "bootloader/BootloaderClient.h"
#include "burn/BurnMessageEvent.h"
#include "burn/BurnProgressEvent.h"
#include "firmware/FirmwareFile.h"
#include "support/CommandLine.h"
#include "tests/burn/ScriptedDevice.h"

#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QRegularExpression>
#include <QTemporaryDir>

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <mutex>
#include <random>
#include <thread>

namespace
{

using namespace devicesim;
using namespace std::chrono_literals;

/// A burn has ended by itself after this time, whatever went wrong.
constexpr auto longestBurn = 60s;
/// While blocks are written and read, a pass takes no longer, and leaves a block behind or a line in the log.
constexpr auto longestPass = 1500ms;
constexpr int maxErases = 3;
/// A fault has no more lines in the log: one that lasts for two seconds, and what comes of it.
constexpr int mostErrors = 12;
/// The powerup delay of 3 s is a long row of pings, all alike. The host sleeps through most of it.
constexpr int pingsOfDelay = 4;
constexpr auto restOfDelay = 2400ms;
/// A device that needs so long to come in the place of another is found out on any line.
constexpr int sureSwapMs = 2000;

/// Four blocks: one that reads like a version reply, two alike, and one that holds what looks like the head of a reply.
const QByteArray likeVersion = QByteArray::fromHex("421083200003");
const QByteArray twin = "0123456789abcdef";
const QByteArray likeHead = QByteArray::fromHex("55558000000012000000900070a0800000");
const QVector<ImagePart> image = {{0x3100, likeVersion}, {0x3200, twin}, {0x3300, twin}, {0x3400, likeHead + likeHead}};
/// The rest of the memory is blank, which saves time.
constexpr std::size_t usedMemory = 0x3500;
constexpr int imageStart = 0x3100;
/// The memory of a device that holds the image.
const std::vector<std::uint8_t> burned = [] {
    std::vector<std::uint8_t> memory(usedMemory, 0xFF);
    for (const auto& [address, data] : image) {
        std::ranges::copy(data, memory.begin() + address);
    }
    return memory;
}();

/// Bits that never become 0, in the first block, in the second of the equal ones, and in the last.
const StuckBit inFirst = {0x3101, 0};
const StuckBit inTwin = {0x3301, 1};
const StuckBit inLast = {0x3403, 0};

/// A kind of burn that is explored.
struct Setup {
    const char* name;
    bool echo = false;
    std::chrono::milliseconds latency{0};
    std::vector<StuckBit> stuckBits = {};
    /// Anything but a burn finds the image in the device, but for the stuck bits.
    BurnTask task = BurnTask::Burn;
};

const std::vector<Setup> setups = {
    {"plain"},
    {"plain, bad twin", false, 0ms, {inTwin}},
    {"plain, bad end", false, 0ms, {inLast}},
    {"echo", true},
    {"echo, bad end", true, 0ms, {inLast}},
    {"late", false, 110ms},
    {"late, bad twin", false, 110ms, {inTwin}},
    {"late echo", true, 40ms},
    {"late echo, bad end", true, 40ms, {inLast}},
    {"compare", false, 0ms, {}, BurnTask::Verify},
    {"compare, bad start", false, 0ms, {inFirst}, BurnTask::Verify},
    {"compare, bad end", false, 0ms, {inLast}, BurnTask::Verify},
    {"late compare, bad twin", false, 110ms, {inTwin}, BurnTask::Verify},
    {"if needed, bad end", false, 0ms, {inLast}, BurnTask::BurnIfNeeded},
};

using Faults = std::vector<PlacedFault>;

/// As options of devicesim, as far as it has them.
QString toText(const Setup& setup, const Faults& faults)
{
    QString text = setup.echo ? "--echo" : "";
    for (const StuckBit& stuck : setup.stuckBits) {
        text += QString(" --fault stuck-bit:%1.%2=1").arg(stuck.address).arg(stuck.bit);
    }
    for (const PlacedFault& fault : faults) {
        text += " --fault " + fault.toText();
    }
    return text.trimmed();
}

/// A request of a burn: its kind, and which of that kind it is.
using Place = std::pair<RequestKind, int>;

/// What may go wrong with a request. A line that hangs up stands for a stop.
Faults possibleFaults(const Place& place)
{
    Faults faults;
    const auto add = [&](Fault fault, std::initializer_list<std::optional<int>> values = {std::nullopt}) {
        for (const std::optional<int> value : values) {
            faults.push_back({fault, place.first, place.second, value});
        }
    };
    for (const auto fault : {Fault::Drop, Fault::Refuse, Fault::Twice, Fault::HangUp}) {
        add(fault);
    }
    // Where a request changes nothing, to lose it is as good as to lose its reply.
    if (place.first == RequestKind::Erase || place.first == RequestKind::Write || place.first == RequestKind::Reset) {
        add(Fault::Ignore);
    }
    add(Fault::Late, {60, 150, 350, 700});
    add(Fault::Stray, {0x90, 0x70, 0x80, 0xA0});
    add(Fault::Restart, {500});
    add(Fault::Swap, {600, sureSwapMs});
    if (place.first == RequestKind::Version || place.first == RequestKind::Read) {
        // In its head and in its data.
        add(Fault::Cut, {4, 13});
        add(Fault::Flip, {4, 8 * 4 + 1, 8 * 6});
    } else {
        // Of 0x90, one makes it 0x80, the other is no status.
        add(Fault::Flip, {4, 5});
    }
    return faults;
}

/// Whether devices were exchanged so quickly that nobody could tell it from what the answers were late.
bool isTooQuick(const Setup& setup, const Faults& faults)
{
    int quickest = sureSwapMs;
    auto late = setup.latency.count() + 150; // which answers vary by on any line
    for (const PlacedFault& fault : faults) {
        late += fault.fault == Fault::Late || fault.fault == Fault::Restart ? *fault.value : 0;
        quickest = std::min(quickest, fault.fault == Fault::Swap ? *fault.value : sureSwapMs);
    }
    return late >= quickest && quickest < sureSwapMs;
}

struct Outcome {
    /// Empty if all is as it should be.
    QString finding;
    /// Failed although the memory holds the image.
    bool falseBad = false;
    bool succeeded = false;
    std::vector<Place> requests;
};

/// Receives the events of the burns of one thread, and makes them.
class Explorer : public QObject
{
public:
    /// @param firmwareFolder has the firmware file in a folder for links without echo, and one for those with it.
    explicit Explorer(const QString& firmwareFolder)
        : files{firmwareFolder + "/0/firmware.txt", firmwareFolder + "/1/firmware.txt"}
    {
    }

    Outcome burn(const Setup& setup, const Faults& faults)
    {
        ScriptedDevice device;
        BurnThread thread(this, device.clientFactory(), device.line->clock());
        Outcome outcome;
        bool stopped = false;
        bool endless = false;
        int sentAfterStop = 0;
        std::array<int, requestNames.size()> counts = {};
        std::optional<ScriptedLine::Time> firstWrite;
        device.line->echo = setup.echo;
        device.latency = setup.latency;
        device.traits.faults.placed = faults;
        device.traits.faults.stuckBits = setup.stuckBits;
        device.traits.otherMemory = burned;
        device.traits.memory = setup.task == BurnTask::Burn ? std::vector<std::uint8_t>(usedMemory) : burned;
        device.requestStop = [&] {
            stopped = true;
            thread.requestStop();
        };
        device.onRequest = [&](RequestKind kind) {
            sentAfterStop += stopped ? 1 : 0;
            outcome.requests.emplace_back(kind, ++counts[static_cast<std::size_t>(kind)]);
            if (kind == RequestKind::Write && !firstWrite) {
                firstWrite = device.line->now;
            }
            if (kind == RequestKind::Ping && counts[static_cast<std::size_t>(kind)] == pingsOfDelay) {
                device.line->now += restOfDelay;
            }
            if (device.line->now > longestBurn && !stopped) {
                endless = true;
                device.stop();
            }
        };
        log = {};
        thread.startJob(
            {.task = setup.task, .portName = "line", .fileName = files.at(setup.echo ? 1 : 0), .maxErases = maxErases});
        thread.wait();
        QCoreApplication::sendPostedEvents();

        const bool equal = std::equal(burned.begin() + imageStart, burned.end(), device.memory().begin() + imageStart);
        const auto swaps = std::ranges::count(faults, Fault::Swap, &PlacedFault::fault);
        // Of one that comes, and stays, the program asks the identity before it says good.
        const bool mayPass = isTooQuick(setup, faults) && swaps > 1;
        const bool failed = thread.outcome() == BurnThread::Outcome::Failed;
        outcome.succeeded = thread.outcome() == BurnThread::Outcome::Succeeded;
        // A reply without an identity, such as an echo that is taken for the reply, is refused as it stands.
        const bool isRefused = thread.result().reason == BurnResult::Reason::OtherDevice &&
                               thread.result().identity.value_or(BurnResult::Identity()).deviceId != 0;
        outcome.falseBad = failed && equal && thread.result().reason == BurnResult::Reason::Verification;
        if (outcome.succeeded != log.saidGood && !stopped) {
            outcome.finding = "says one thing in the log and another in the outcome";
        } else if ((outcome.succeeded || log.saidGood) && !equal && !mayPass) {
            outcome.finding = "FALSE GOOD";
        } else if (device.otherTouched && !isTooQuick(setup, faults)) {
            outcome.finding = "has erased or written another device";
        } else if (setup.task == BurnTask::Verify && device.requests.contains(QRegularExpression("[ew]"))) {
            outcome.finding = "has erased or written what it was to compare";
        } else if (isRefused && swaps == 0) {
            outcome.finding = "takes the right device for another";
        } else if (log.silentPasses > 0 || (failed && log.errors == 0)) {
            outcome.finding = "fails without a line";
        } else if (log.errors > mostErrors * (1 + std::ssize(faults))) {
            outcome.finding = "repeats itself too often";
        } else if (endless) {
            outcome.finding = "does not end";
        } else if (firstWrite &&
                   device.line->now - *firstWrite > longestPass * (2 * std::ssize(image) + 2 + log.errors)) {
            outcome.finding = "falls silent";
        } else if (sentAfterStop > 0) { // by a port that was opened anew: a cancelled one sends nothing
            outcome.finding = "sends after a stop";
        }
        return outcome;
    }

protected:
    void customEvent(QEvent* event) override
    {
        if (event->type() == BurnMessageEvent::eventType) {
            const auto& message = static_cast<const BurnMessageEvent&>(*event);
            log.saidGood = log.saidGood || message.text == u"Verification successful";
            if (message.kind == MessageKind::Status) {
                log.tellsPasses = message.text == u"Programming" || message.text == u"Verifying";
            }
            if (message.kind == MessageKind::Error) {
                ++log.errors;
                log.untoldBlock = 0;
            }
        } else if (event->type() == BurnProgressEvent::eventType) {
            const auto& progress = static_cast<const BurnProgressEvent&>(*event);
            if (progress.kind == ProgressKind::Value && log.tellsPasses) {
                log.silentPasses += progress.value >= imageStart && progress.value == log.untoldBlock ? 1 : 0;
                log.untoldBlock = progress.value;
            }
        }
    }

private:
    /// What the events of a burn have told so far.
    struct Log {
        bool saidGood = false;
        int errors = 0;
        /// A pass that is left without an answer has its line while blocks are written and compared: the same block
        /// does not come twice in a row without one. While the device erases and checks, repeats are silent.
        bool tellsPasses = false;
        int untoldBlock = 0;
        int silentPasses = 0;
    };

    const std::array<QString, 2> files;
    Log log;
};

/// What was found in all burns, by all threads.
class Findings
{
public:
    std::atomic<std::int64_t> burns = 0;
    std::atomic<std::int64_t> succeeded = 0;
    std::atomic<std::int64_t> falseBad = 0;
    std::atomic<std::int64_t> broken = 0;

    Findings() { clock.start(); }

    void note(const Setup& setup, const Outcome& outcome, const QString& how, int length)
    {
        ++burns;
        succeeded += outcome.succeeded ? 1 : 0;
        falseBad += outcome.falseBad ? 1 : 0;
        broken += outcome.finding.isEmpty() ? 0 : 1;
        QString what = outcome.finding;
        if (what.isEmpty() && outcome.falseBad) {
            what = QStringLiteral("failed, but the memory is right");
        }
        if (!what.isEmpty()) {
            const std::lock_guard lock(mutex);
            const auto [place, isNew] = shortest.try_emplace(what);
            if (isNew || length < place->second.first) {
                place->second = {length, QStringLiteral("%1: %2: %3").arg(setup.name, how, what)};
            }
        }
    }

    /// @param part what has been done so far.
    void printSum(const char* part) const
    {
        std::printf("%s: %lld burns in %lld s, %lld succeeded, %lld failed with the memory right, %lld broke a rule\n",
            part, static_cast<long long>(burns), static_cast<long long>(clock.elapsed() / 1000),
            static_cast<long long>(succeeded), static_cast<long long>(falseBad), static_cast<long long>(broken));
        std::fflush(stdout);
    }

    void printShortest() const
    {
        for (const auto& [what, way] : shortest) {
            std::printf("%s\n", qPrintable(way.second));
        }
    }

private:
    QElapsedTimer clock;
    std::mutex mutex;
    /// By what is wrong: the length of the shortest way to it, and the way.
    std::map<QString, std::pair<int, QString>> shortest;
};

/// The faults that the requests of a burn can have, each with the index of its request. Pings are all alike but for the
/// first and the last of a row.
std::vector<std::pair<std::size_t, PlacedFault>> faultsFrom(std::size_t from, const std::vector<Place>& requests)
{
    const auto isPing = [&](std::size_t at) { return at < requests.size() && requests[at].first == RequestKind::Ping; };
    std::vector<std::pair<std::size_t, PlacedFault>> faults;
    for (std::size_t i = from; i < requests.size(); ++i) {
        if (!isPing(i) || !isPing(i - 1) || !isPing(i + 1)) {
            for (const PlacedFault& fault : possibleFaults(requests[i])) {
                faults.emplace_back(i, fault);
            }
        }
    }
    return faults;
}

/// Makes the burn with `faults`, and all those with up to `more` faults behind them.
void explore(
    Explorer& explorer, const Setup& setup, const Faults& faults, std::size_t from, int more, Findings& findings)
{
    const Outcome outcome = explorer.burn(setup, faults);
    findings.note(setup, outcome, toText(setup, faults), static_cast<int>(faults.size()));
    if (more == 0 || faults.back().fault == Fault::HangUp) {
        return;
    }
    for (const auto& [index, fault] : faultsFrom(from, outcome.requests)) {
        Faults longer = faults;
        longer.push_back(fault);
        explore(explorer, setup, longer, index + 1, more - 1, findings);
    }
}

/// A burn with faults drawn from `seed`.
void burnAtRandom(Explorer& explorer, std::uint64_t seed, Findings& findings)
{
    // No burn has more requests of a kind that matter.
    constexpr int mostRequests = 200;
    constexpr std::array oneIn = {200, 50, 20, 10, 6};
    std::mt19937_64 generator(seed);
    const auto below = [&](std::size_t limit) { return static_cast<std::size_t>(generator() % limit); };
    const Setup& setup = setups[below(setups.size())];
    const std::size_t chance = oneIn[below(oneIn.size())];
    Faults faults;
    for (std::size_t kind = 0; kind < requestNames.size(); ++kind) {
        const auto request = static_cast<RequestKind>(kind);
        for (int number = 1; number <= mostRequests; ++number) {
            if (below(request == RequestKind::Ping ? 20 * chance : chance) == 0) {
                const Faults possible = possibleFaults({request, number});
                faults.push_back(possible[below(possible.size())]);
            }
        }
    }
    Outcome outcome = explorer.burn(setup, faults);
    // Most of the faults of a finding do not matter.
    for (std::size_t i = 0; i < faults.size() && !outcome.finding.isEmpty();) {
        Faults fewer = faults;
        fewer.erase(fewer.begin() + static_cast<std::ptrdiff_t>(i));
        const bool isSame = explorer.burn(setup, fewer).finding == outcome.finding;
        isSame ? faults.swap(fewer) : static_cast<void>(++i);
    }
    const QString how = outcome.finding.isEmpty() ? "" : toText(setup, faults);
    findings.note(
        setup, outcome, QString("--random 1 --seed %1 %2").arg(seed).arg(how), static_cast<int>(faults.size()));
}

/// Runs `work` on all processors, each time with the next number below `count`.
void share(std::size_t count, const QString& folder, const std::function<void(Explorer&, std::size_t)>& work)
{
    std::atomic<std::size_t> next = 0;
    std::vector<std::jthread> threads;
    for (unsigned i = 0; i < std::max(1U, std::thread::hardware_concurrency()); ++i) {
        threads.emplace_back([&] {
            Explorer explorer(folder);
            for (std::size_t number = next++; number < count; number = next++) {
                work(explorer, number);
            }
        });
    }
}

/// Makes every burn with up to `depth` faults, of all kinds or of the one that is named.
void exploreAll(const QString& folder, int depth, const QString& only, Findings& findings)
{
    for (const Setup& setup : setups) {
        if (!only.isEmpty() && only != setup.name) {
            continue;
        }
        Explorer first(folder);
        const Outcome plain = first.burn(setup, {});
        findings.note(setup, plain, toText(setup, {}), 0);
        const auto starts = faultsFrom(0, plain.requests);
        share(depth > 0 ? starts.size() : 0, folder, [&](Explorer& explorer, std::size_t number) {
            const auto& [index, fault] = starts[number];
            explore(explorer, setup, {fault}, index + 1, depth - 1, findings);
        });
        findings.printSum(setup.name);
    }
}

} // namespace

int main(int argc, char** argv)
{
    const QCoreApplication application(argc, argv);
    QStringList names;
    for (const Setup& setup : setups) {
        names += setup.name;
    }
    CommandLine line("ExploreBurns", "[OPTION]...",
        "Burns a scripted device in virtual time with every placement of up to N faults, and checks after each burn "
        "that the program has told the truth. Prints the shortest sequence of faults that breaks a rule.");
    line.addOption("faults", "N", "Place up to N faults (default 2, a minute or two; 3 takes hours).");
    line.addOption("setup", "NAME", "Explore one kind of burn: '" + names.join("', '") + "'.");
    line.addOption("random", "N", "Make N burns of all kinds with random faults instead.");
    line.addOption("seed", "N", "Random seed of the first of these (default 1); each of the others has the next.");
    line.parse(application.arguments().mid(1));
    const auto depth = line.number("faults", 0, 9);
    const QString only = line.text("setup").value_or(QString());
    const auto burns = line.number<std::int64_t>("random", 1, INT64_MAX).value_or(0);
    const auto seed = line.number<std::int64_t>("seed", 0, INT64_MAX).value_or(1);
    line.operands(0, "no arguments");
    if ((!only.isEmpty() && !names.contains(only)) || (burns > 0 && (depth || !only.isEmpty()))) {
        line.refuse("--setup wants a kind of burn, and --random neither that nor --faults");
    }
    if (const auto verdict = line.verdict()) {
        return static_cast<int>(*verdict);
    }

    const QTemporaryDir folder;
    for (const int link : {0, FirmwareFile::echoLink}) {
        QDir().mkpath(folder.filePath(QString::number(link)));
        writeFirmware(folder.filePath(QString::number(link)), image, 0x0300, 57600, link);
    }
    Findings findings;
    if (burns > 0) {
        share(static_cast<std::size_t>(burns), folder.path(), [&](Explorer& explorer, std::size_t number) {
            burnAtRandom(explorer, static_cast<std::uint64_t>(seed) + number, findings);
        });
    } else {
        exploreAll(folder.path(), depth.value_or(2), only, findings);
    }
    findings.printShortest();
    findings.printSum("all");
    // A kind with a bad bit has no success.
    return findings.broken == 0 && (findings.succeeded > 0 || !only.isEmpty()) ? 0 : 1;
}
