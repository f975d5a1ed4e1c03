// The list of ports of a machine with a hundred USB adapters and the 64 virtual consoles that every Linux has. The
// devices are umockdev's, which makes each look into sysfs dearer than the kernel's own.

#include "serial/PortEnumerator.h"
#include "tests/support/MockMachine.h"

#include <benchmark/benchmark.h>

namespace
{

constexpr int adapterCount = 100;
constexpr int consoleCount = 64;

void listPorts(benchmark::State& state)
{
    QByteArray devices;
    for (int i = 0; i < consoleCount; ++i) {
        devices += "tty;virtual;tty" + QByteArray::number(i) + '\n';
    }
    for (int i = 0; i < adapterCount; ++i) {
        const QByteArray number = QByteArray::number(i);
        devices += "usb;1-" + number + ";ttyUSB" + number +
                   ";idVendor=0403|idProduct=6001|manufacturer=FTDI|product=FT232R USB UART|serial=A" + number + '\n';
    }
    const MockMachine machine(devices);
    for ([[maybe_unused]] auto _ : state) {
        if (availablePorts().size() < adapterCount) {
            state.SkipWithError("ports are missing");
            return;
        }
    }
}

BENCHMARK(listPorts)->Unit(benchmark::kMillisecond);

} // namespace

BENCHMARK_MAIN();
