// Runs a shell command a number of times and prints its median wall time in milliseconds and the largest memory that
// one process of it had resident, in KiB. Usage: MeasureCommand RUNS COMMAND
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

    std::vector<double> milliseconds;
    long peak = 0;
    while (milliseconds.size() < runs) {
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
        milliseconds.push_back(time.count());
        peak = std::max(peak, usage.ru_maxrss);
    }
    std::sort(milliseconds.begin(), milliseconds.end());
    std::printf("%.3f %ld\n", milliseconds[runs / 2], peak);
    return 0;
}
