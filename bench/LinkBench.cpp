// Blocks of 512 bytes to and from a simulated device on a paced line, against the time that their bytes take on it.
//
// Counters: `line` and `line_median`, time taken by time on the line (10 bits a byte, request and reply; 1 is the best
// there is), over all exchanges and of the one in the middle, which a busy machine holds up less; `cpu_s_per_MB`,
// processor time of the client's thread for a megabyte of blocks, the device left out; `failed`, the share of exchanges
// that failed and are in the times all the same.

#include "bootloader/BootloaderClient.h"
#include "tools/devicesim/DeviceSim.h"

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <numeric>
#include <vector>

#include <benchmark/benchmark.h>
#include <sys/resource.h>

namespace
{

constexpr std::size_t blockSize = 512;
constexpr std::uint32_t blockAddress = 0x3100;
constexpr std::size_t bareFrameSize = 8;
constexpr double bitsPerByte = 10;

double threadSeconds()
{
    rusage usage{};
    getrusage(RUSAGE_THREAD, &usage);
    const auto seconds = [](const timeval& time) {
        return static_cast<double>(time.tv_sec) + 1e-6 * static_cast<double>(time.tv_usec);
    };
    return seconds(usage.ru_utime) + seconds(usage.ru_stime);
}

/// A busy machine can hold up the first answers.
bool answers(BootloaderClient& client)
{
    for (int attempt = 0; attempt < 20; ++attempt) {
        if (client.readVersion()) {
            return true;
        }
    }
    return false;
}

/// Makes one exchange an iteration on a line of the benchmark's argument in baud.
/// @param bytesOnLine of one exchange, request and reply.
/// @param exchange gives false when it failed.
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
    const double cpuBefore = threadSeconds();
    for ([[maybe_unused]] auto _ : state) {
        const auto start = std::chrono::steady_clock::now();
        failed += exchange(client) ? 0 : 1;
        seconds.push_back(std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count());
    }
    const double cpu = threadSeconds() - cpuBefore;

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

void rates(benchmark::internal::Benchmark* bench)
{
    bench->ArgName("baud")->Arg(57600)->Arg(115200)->Arg(921600)->UseRealTime()->Unit(benchmark::kMillisecond);
}

} // namespace

BENCHMARK(writeBlock)->Apply(rates);
BENCHMARK(readBlock)->Apply(rates);
BENCHMARK_MAIN();
