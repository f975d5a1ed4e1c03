// Runs a shell command a number of times and prints the medians of its wall time and of the processor time of all its
// processes, in milliseconds, and the largest memory that one process of it had resident, in KiB.
// Usage: MeasureCommand RUNS COMMAND
//
// The memory is that of the largest process of the command, not the sum of those that run at the same time.

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <vector>

#include <spawn.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

namespace
{

double milliseconds(const timeval& time)
{
    return static_cast<double>(time.tv_sec) * 1e3 + static_cast<double>(time.tv_usec) / 1e3;
}

double median(std::vector<double> values)
{
    std::sort(values.begin(), values.end());
    return values[values.size() / 2];
}

} // namespace

int main(int argc, char* argv[])
{
    if (argc != 3) {
        std::fputs("usage: MeasureCommand RUNS COMMAND\n", stderr);
        return 2;
    }
    const std::size_t runs = std::max(1UL, std::strtoul(argv[1], nullptr, 10));
    char shell[] = "sh";
    char option[] = "-c";
    char* const arguments[] = {shell, option, argv[2], nullptr};

    std::vector<double> wallTimes;
    std::vector<double> processorTimes;
    long peak = 0;
    while (wallTimes.size() < runs) {
        const auto start = std::chrono::steady_clock::now();
        pid_t child = 0;
        if (posix_spawn(&child, "/bin/sh", nullptr, nullptr, arguments, environ) != 0) {
            std::fputs("MeasureCommand: cannot start a shell\n", stderr);
            return 1;
        }
        int status = 0;
        rusage usage{};
        while (wait4(child, &status, 0, &usage) == -1 && errno == EINTR) {
        }
        const std::chrono::duration<double, std::milli> time = std::chrono::steady_clock::now() - start;
        if (status != 0) {
            std::fprintf(stderr, "MeasureCommand: the command failed: %s\n", argv[2]);
            return 1;
        }
        wallTimes.push_back(time.count());
        processorTimes.push_back(milliseconds(usage.ru_utime) + milliseconds(usage.ru_stime));
        peak = std::max(peak, usage.ru_maxrss);
    }
    std::printf("%.3f %.3f %ld\n", median(wallTimes), median(processorTimes), peak);
    return 0;
}
