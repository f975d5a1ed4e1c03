// FirmwareFile::load of images of random bytes, whose records stand in the order of their addresses or in any order.
// 52 KiB is what a device has whose bootloader ends at 0x3100, 64 KiB all that the protocol addresses; for larger files
// the time shall grow in proportion.

#include "firmware/FirmwareFile.h"
#include "tests/support/IntelHex.h"
#include "tools/fwpack/Package.h"

#include <QTemporaryFile>

#include <algorithm>
#include <random>
#include <utility>
#include <vector>

#include <benchmark/benchmark.h>

namespace
{

constexpr std::int64_t kib = 1024;
constexpr unsigned recordLength = 16;

QByteArray firmwareFile(std::int64_t imageSize, bool shuffled)
{
    std::mt19937 random(1); // NOLINT(cert-msc32-c, cert-msc51-cpp): the same bytes in every run
    std::vector<std::pair<unsigned, QByteArray>> records;
    for (unsigned address = 0; address < imageSize; address += recordLength) {
        QByteArray data(recordLength, '\0');
        std::generate(data.begin(), data.end(), [&random] { return static_cast<char>(random()); });
        records.emplace_back(address, data);
    }
    if (shuffled) {
        std::shuffle(records.begin(), records.end(), random);
    }
    return fwpack::makePackage({}, hexText(records));
}

void load(benchmark::State& state, bool shuffled)
{
    QTemporaryFile file;
    if (!file.open() || file.write(firmwareFile(state.range(0), shuffled)) <= 0 || !file.flush()) {
        state.SkipWithError("no temporary file");
        return;
    }
    for ([[maybe_unused]] auto _ : state) {
        FirmwareFile firmware;
        if (!firmware.load(file.fileName())) {
            state.SkipWithError(qPrintable(firmware.errorText));
            return;
        }
        benchmark::DoNotOptimize(firmware.image);
    }
    state.SetBytesProcessed(state.iterations() * state.range(0));
}

void imageSizes(benchmark::internal::Benchmark* bench)
{
    bench->ArgName("bytes")->Arg(52 * kib)->Arg(64 * kib)->Arg(512 * kib)->Arg(2048 * kib);
    bench->Unit(benchmark::kMillisecond);
}

BENCHMARK_CAPTURE(load, inOrder, false)->Apply(imageSizes);
BENCHMARK_CAPTURE(load, shuffled, true)->Apply(imageSizes);

} // namespace

BENCHMARK_MAIN();
