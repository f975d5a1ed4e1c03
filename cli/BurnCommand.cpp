#include "cli/BurnConsole.h"
#include "cli/Commands.h"

#include <limits>

namespace
{

/// Seconds that a timer of 32 bits holds as milliseconds.
constexpr int longestTimeout = std::numeric_limits<int>::max() / 1000;

ExitStatus burn(CommandLine& line, const QStringList& arguments)
{
    line.addOption("port", "NAME", "The serial port of the device; \"tavimora-cli ports\" lists them.");
    line.addOption("timeout", "SECONDS", "Give up when no device has answered after SECONDS.");
    line.setEpilogue("\nExit status: 0 burned and verified, 1 the burn failed, 2 wrong usage, 3 no device\n"
                     "within the time-out, 130 stopped by a signal.\n");
    line.parse(arguments);
    const QString port = line.requiredText("port");
    const std::optional<int> timeout = line.number<int>("timeout", 1, longestTimeout);
    const QString file = line.operands(1, "one firmware file").constFirst();
    if (const std::optional<ExitStatus> status = line.verdict()) {
        return *status;
    }
    return BurnConsole(timeout ? std::optional(std::chrono::seconds(*timeout)) : std::nullopt).run(port, file);
}

} // namespace

const Command burnCommand = {"burn", "--port NAME [--timeout SECONDS] FILE",
    "Waits for the bootloader of the device at a serial port, burns FILE, reads it\n"
    "back and compares it. The log goes to standard output, the reason of a failure\n"
    "to standard error.",
    burn};
