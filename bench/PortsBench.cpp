#include "serial/PortEnumerator.h"
#include "serial/PortScan.h"
#include "tests/serial/FakeDeviceApi.h"
#include "tests/serial/MockMachine.h"

#include <benchmark/benchmark.h>

namespace
{

constexpr int portCount = 100;

/// The whole list through libudev. The ports are umockdev's, which makes each look into sysfs dearer than the kernel's
/// own, and the 64 consoles are there that every Linux has.
void listMockedMachine(benchmark::State& state)
{
    QByteArray devices;
    for (int i = 0; i < 64; ++i) {
        devices += "tty;virtual;tty" + QByteArray::number(i) + '\n';
    }
    for (int i = 0; i < portCount; ++i) {
        const QByteArray number = QByteArray::number(i);
        devices += "usb;1-" + number + ";ttyUSB" + number +
                   ";idVendor=0403|idProduct=6001|manufacturer=FTDI|product=FT232R USB UART|serial=A" + number + '\n';
    }
    const MockMachine machine(devices);
    for ([[maybe_unused]] const auto& iteration : state) {
        const std::size_t found = availablePorts().size();
        if (found < portCount) {
            state.SkipWithError("ports are missing");
        }
    }
}
BENCHMARK(listMockedMachine)->Unit(benchmark::kMillisecond);

/// What the rules for Windows cost beside the system's own calls.
void scanFakeMachine(benchmark::State& state)
{
    FakeDeviceApi api;
    for (std::uint32_t i = 1; i <= portCount; ++i) {
        const std::u16string name = u"COM" + QString::number(i).toStdU16String();
        api.nodes[i] = {u"FTDIBUS\\VID_0403+PID_6001+A50285BI\\0000", 0, {{u"PortName", {1, name}}},
            {{0, {1, u"USB Serial Port"}}, {11, {1, u"FTDI"}}}};
        api.classes[0].push_back(i);
        api.classes[2].push_back(i);
        api.serialComm.push_back({1, name});
    }
    for ([[maybe_unused]] const auto& iteration : state) {
        if (scanPorts(api).size() != portCount) {
            state.SkipWithError("ports are missing");
        }
        api.calls.clear();
    }
}
BENCHMARK(scanFakeMachine)->Unit(benchmark::kMillisecond);

} // namespace

BENCHMARK_MAIN();
