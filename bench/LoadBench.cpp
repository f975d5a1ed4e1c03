// How fast a firmware file is read: as a whole, stage by stage, and on images that lie awkwardly.

#include "firmware/BlockScanner.h"
#include "firmware/BurnLimits.h"
#include "firmware/FirmwareFile.h"
#include "firmware/QAESEncryption.h"
#include "tools/fwpack/Package.h"

#include <QBuffer>
#include <QJsonDocument>
#include <QJsonObject>
#include <QTemporaryFile>

#include <algorithm>
#include <array>
#include <functional>
#include <random>
#include <vector>

#include <benchmark/benchmark.h>

namespace
{

constexpr std::int64_t kib = 1024;
constexpr std::int64_t mib = 1024 * kib;
/// All that a device of the protocol can hold, and sizes far beyond.
constexpr std::array<std::int64_t, 3> imageSizes{64 * kib, mib, 4 * mib};

constexpr std::uint8_t linearAddress = 0x04;

/// Appends one Intel HEX record.
void appendRecord(QByteArray& text, std::uint16_t offset, std::uint8_t type, const QByteArray& data)
{
    QByteArray record;
    record.append(static_cast<char>(data.size()));
    record.append(static_cast<char>(offset >> 8));
    record.append(static_cast<char>(offset & 0xFF));
    record.append(static_cast<char>(type));
    record.append(data);
    unsigned sum = 0;
    for (const char byte : std::as_const(record)) {
        sum += static_cast<std::uint8_t>(byte);
    }
    record.append(static_cast<char>(0x100 - sum % 0x100));
    text += ':' + record.toHex().toUpper() + '\n';
}

/// `length` random bytes at each of the addresses, one record each with the base address that it needs before it.
QByteArray hexText(const std::vector<std::uint32_t>& addresses, std::size_t length)
{
    std::mt19937 random(1); // NOLINT(cert-msc32-c, cert-msc51-cpp): the same bytes in every run
    QByteArray text;
    std::uint32_t base = 0;
    for (const std::uint32_t address : addresses) {
        if (address >> 16 != base) {
            base = address >> 16;
            const char bytes[] = {static_cast<char>(base >> 8), static_cast<char>(base & 0xFF)};
            appendRecord(text, 0, linearAddress, QByteArray(bytes, sizeof bytes));
        }
        QByteArray data;
        std::generate_n(std::back_inserter(data), length, [&random] { return static_cast<char>(random()); });
        appendRecord(text, static_cast<std::uint16_t>(address & 0xFFFF), 0, data);
    }
    return text;
}

/// `count` addresses, `distance` apart.
std::vector<std::uint32_t> addressRow(std::int64_t count, std::uint32_t distance)
{
    std::vector<std::uint32_t> addresses(static_cast<std::size_t>(count));
    std::generate(addresses.begin(), addresses.end(), [distance, next = 0U]() mutable {
        const std::uint32_t address = next;
        next += distance;
        return address;
    });
    return addresses;
}

/// An image of `size` random bytes without a gap, in all the forms that it passes through.
struct Sample {
    explicit Sample(std::int64_t size)
        : hex(hexText(addressRow(size / 16, 16), 16))
    {
        file = fwpack::makePackage({}, hex);
        base64 = QJsonDocument::fromJson(file).object().value("image").toString();
        cipherText = QByteArray::fromBase64(base64.toLocal8Bit());
    }

    QByteArray hex;
    QByteArray file;
    QString base64;
    QByteArray cipherText;
};

MemoryImage imageOf(QByteArray hex)
{
    MemoryImage image;
    QBuffer buffer(&hex);
    buffer.open(QIODevice::ReadOnly);
    image.readIntelHex(buffer);
    return image;
}

/// Bytes per second count the image, whatever the stage, so that the stages compare.
void countImage(benchmark::State& state)
{
    state.SetBytesProcessed(state.iterations() * state.range(0));
}

void load(benchmark::State& state)
{
    QTemporaryFile file;
    if (!file.open() || file.write(Sample(state.range(0)).file) <= 0 || !file.flush()) {
        state.SkipWithError("no temporary file");
        return;
    }
    while (state.KeepRunning()) {
        FirmwareFile firmware;
        if (!firmware.load(file.fileName())) {
            state.SkipWithError("does not load");
            return;
        }
        benchmark::DoNotOptimize(firmware.image);
    }
    countImage(state);
}

void json(benchmark::State& state)
{
    const QByteArray file = Sample(state.range(0)).file;
    while (state.KeepRunning()) {
        benchmark::DoNotOptimize(QJsonDocument::fromJson(file).object().value("image").toString());
    }
    countImage(state);
}

void base64(benchmark::State& state)
{
    const QString text = Sample(state.range(0)).base64;
    while (state.KeepRunning()) {
        benchmark::DoNotOptimize(QByteArray::fromBase64(text.toLocal8Bit()));
    }
    countImage(state);
}

void aes(benchmark::State& state)
{
    const QByteArray cipherText = Sample(state.range(0)).cipherText;
    while (state.KeepRunning()) {
        QAESEncryption cipher(QAESEncryption::Aes128, QAESEncryption::Ecb, QAESEncryption::Iso);
        benchmark::DoNotOptimize(cipher.removePadding(cipher.decode(cipherText, fwpack::packageKey, {})));
    }
    countImage(state);
}

void readHex(benchmark::State& state, const QByteArray& text)
{
    while (state.KeepRunning()) {
        benchmark::DoNotOptimize(imageOf(text));
    }
    state.SetBytesProcessed(state.iterations() * text.size());
    state.SetComplexityN(state.range(0));
}

void hex(benchmark::State& state)
{
    readHex(state, Sample(state.range(0)).hex);
    countImage(state);
}

void scanBlocks(benchmark::State& state, const MemoryImage& image)
{
    while (state.KeepRunning()) {
        BlockScanner scanner(image);
        while (nextBurnBlock(scanner)) {
            benchmark::DoNotOptimize(scanner.data);
        }
    }
    state.SetComplexityN(state.range(0));
}

void scan(benchmark::State& state)
{
    scanBlocks(state, imageOf(Sample(state.range(0)).hex));
    countImage(state);
}

/// One byte a record, `distance` apart, so that every record makes a line and a block of its own.
constexpr std::uint32_t sparseDistance = 256;

void hexSparse(benchmark::State& state)
{
    readHex(state, hexText(addressRow(state.range(0), sparseDistance), 1));
}

void hexReversed(benchmark::State& state)
{
    auto addresses = addressRow(state.range(0), 16);
    std::reverse(addresses.begin(), addresses.end());
    readHex(state, hexText(addresses, 16));
}

void hexShuffled(benchmark::State& state)
{
    auto addresses = addressRow(state.range(0), 16);
    std::shuffle(addresses.begin(), addresses.end(), std::mt19937(1)); // NOLINT(cert-msc32-c, cert-msc51-cpp)
    readHex(state, hexText(addresses, 16));
}

void scanSparse(benchmark::State& state)
{
    scanBlocks(state, imageOf(hexText(addressRow(state.range(0), sparseDistance), 1)));
}

/// Lines that hold 0xFF alone are gone through, but make no block.
void scanUnused(benchmark::State& state)
{
    MemoryImage image;
    const std::vector<std::uint8_t> unused(static_cast<std::size_t>(state.range(0)) * 16, 0xFF);
    image.insert(0, unused.data(), unused.size());
    scanBlocks(state, image);
}

void sizes(benchmark::internal::Benchmark* bench)
{
    for (const std::int64_t size : imageSizes) {
        bench->Arg(size);
    }
    bench->Unit(benchmark::kMillisecond);
}

/// Number of records or lines; the time must grow with it in proportion, give or take a logarithm.
void growth(benchmark::internal::Benchmark* bench)
{
    bench->RangeMultiplier(8)->Range(1 << 10, 1 << 19)->Unit(benchmark::kMillisecond)->Complexity();
}

BENCHMARK(load)->Apply(sizes);
BENCHMARK(json)->Apply(sizes);
BENCHMARK(base64)->Apply(sizes);
BENCHMARK(aes)->Apply(sizes);
BENCHMARK(hex)->Apply(sizes);
BENCHMARK(scan)->Apply(sizes);
BENCHMARK(hexSparse)->Apply(growth);
BENCHMARK(hexReversed)->Apply(growth);
BENCHMARK(hexShuffled)->Apply(growth);
BENCHMARK(scanSparse)->Apply(growth);
BENCHMARK(scanUnused)->Apply(growth);

} // namespace

BENCHMARK_MAIN();
