// What the link costs beside the time of its bytes on the line, which is 10 bits a byte.
//
// writeBlock, readBlock: a block of 512 bytes to or from a simulated device on a paced line. Counters:
//   line          mean time of an exchange by the time of its bytes, request and reply, on the line; 1 is the optimum
//   line_median   the same for the median, which a busy machine disturbs less
//   cpu_s_per_MB  processor time of the client's thread for a megabyte of blocks; that of the device is left out
//   failed        share of the exchanges that failed; their times count too
//
// waitForDevice: requests on a line where nobody answers, and on one that has hung up. Counter:
//   cpu_s_per_min  processor time of a minute of waiting

#include "bootloader/BootloaderClient.h"
#include "tools/devicesim/DeviceSim.h"
#include "tools/devicesim/PseudoTerminal.h"

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <ctime>
#include <numeric>
#include <vector>

#include <benchmark/benchmark.h>

namespace
{

constexpr std::size_t blockSize = 512;
constexpr std::uint32_t blockAddress = 0x3100;
constexpr std::size_t bareFrameSize = 8;
constexpr double bitsPerByte = 10;

/// Wall and processor time of the calling thread from construction on, in seconds.
class Stopwatch
{
public:
    double wall() const { return now(CLOCK_MONOTONIC) - wallStart; }
    double cpu() const { return now(CLOCK_THREAD_CPUTIME_ID) - cpuStart; }

private:
    static double now(clockid_t clock)
    {
        timespec time{};
        clock_gettime(clock, &time);
        return static_cast<double>(time.tv_sec) + 1e-9 * static_cast<double>(time.tv_nsec);
    }

    double wallStart = now(CLOCK_MONOTONIC);
    double cpuStart = now(CLOCK_THREAD_CPUTIME_ID);
};

/// A busy machine can delay the first answers beyond their limit.
bool answers(BootloaderClient& client)
{
    for (int attempt = 0; attempt < 20; ++attempt) {
        if (client.readVersion()) {
            return true;
        }
    }
    return false;
}

/// Makes one exchange an iteration on a line of `state.range(0)` baud.
/// @param bytesOnLine of one exchange, request and reply.
/// @param exchange returns false when it failed.
template <typename Exchange>
void run(benchmark::State& state, std::size_t bytesOnLine, Exchange exchange)
{
    devicesim::DeviceConfig config;
    config.baudRate = static_cast<std::uint32_t>(state.range(0));
    devicesim::DeviceSim device(config);
    BootloaderClient client;
    if (!device.start() || !client.open(device.portName(), config.baudRate) || !answers(client)) {
        state.SkipWithError("the simulated device does not answer");
        return;
    }
    double failed = 0;
    std::vector<double> seconds;
    const Stopwatch all;
    for ([[maybe_unused]] auto _ : state) {
        const Stopwatch one;
        failed += exchange(client) ? 0 : 1;
        seconds.push_back(one.wall());
    }
    const double cpu = all.cpu();

    const auto exchanges = static_cast<double>(seconds.size());
    const double onLine = static_cast<double>(bytesOnLine) * bitsPerByte / config.baudRate;
    state.counters["line"] = std::accumulate(seconds.begin(), seconds.end(), 0.0) / exchanges / onLine;
    const auto middle = seconds.begin() + static_cast<std::ptrdiff_t>(seconds.size() / 2);
    std::nth_element(seconds.begin(), middle, seconds.end());
    state.counters["line_median"] = *middle / onLine;
    state.counters["cpu_s_per_MB"] = cpu / (exchanges * blockSize / 1e6);
    state.counters["failed"] = failed / exchanges;
}

void writeBlock(benchmark::State& state)
{
    const std::vector<std::uint8_t> block(blockSize, 0x5A);
    run(state, blockSize + bareFrameSize + 1,
        [&](BootloaderClient& client) { return client.writeBlock(blockAddress, block); });
}

void readBlock(benchmark::State& state)
{
    run(state, bareFrameSize + blockSize + bareFrameSize,
        [](BootloaderClient& client) { return client.readBlock(blockAddress, blockSize).size() == blockSize; });
}

void waitForDevice(benchmark::State& state, bool hungUp)
{
    devicesim::PseudoTerminal line;
    std::string error;
    BootloaderClient client;
    if (!line.open(error) || !client.open(line.path(), 57600)) {
        state.SkipWithError("no line");
        return;
    }
    if (hungUp) {
        line.close();
    }
    const Stopwatch all;
    for ([[maybe_unused]] auto _ : state) {
        if (client.readVersion()) {
            state.SkipWithError("an answer out of nothing");
            return;
        }
    }
    state.counters["cpu_s_per_min"] = 60 * all.cpu() / all.wall();
}

void rates(benchmark::internal::Benchmark* bench)
{
    bench->ArgName("baud")->Arg(57600)->Arg(115200)->Arg(921600)->UseRealTime()->Unit(benchmark::kMillisecond);
}

void waiting(benchmark::internal::Benchmark* bench)
{
    bench->Iterations(50)->UseRealTime()->Unit(benchmark::kMillisecond);
}

BENCHMARK(writeBlock)->Apply(rates);
BENCHMARK(readBlock)->Apply(rates);
BENCHMARK_CAPTURE(waitForDevice, silent, false)->Apply(waiting);
BENCHMARK_CAPTURE(waitForDevice, hungUp, true)->Apply(waiting);

} // namespace

BENCHMARK_MAIN();
