// Loads a firmware file as a burn does, a number of times, and prints the median time in milliseconds.
// Usage: LoadFile FILE [RUNS]

#include "firmware/FirmwareFile.h"

#include <QFile>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <vector>

int main(int argc, char* argv[])
{
    if (argc < 2) {
        std::fputs("usage: LoadFile FILE [RUNS]\n", stderr);
        return 2;
    }
    const QString path = QFile::decodeName(argv[1]);
    const std::size_t runs = argc > 2 ? std::max(1UL, std::strtoul(argv[2], nullptr, 10)) : 1;

    std::vector<double> milliseconds;
    while (milliseconds.size() < runs) {
        const auto start = std::chrono::steady_clock::now();
        FirmwareFile firmware;
        if (!firmware.load(path)) {
            std::fprintf(stderr, "LoadFile: %s\n", qPrintable(firmware.errorText));
            return 1;
        }
        const std::chrono::duration<double, std::milli> time = std::chrono::steady_clock::now() - start;
        milliseconds.push_back(time.count());
    }
    std::sort(milliseconds.begin(), milliseconds.end());
    std::printf("%.3f\n", milliseconds[runs / 2]);
    return 0;
}
