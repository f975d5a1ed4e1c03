#pragma once

#include "tools/devicesim/Bootloader.h"

#include <QString>
#include <QStringList>

#include <array>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

namespace devicesim
{

/// Faults that happen by chance, drawn for every request on its own.
enum class Fault : std::uint8_t {
    Drop,   ///< The request is carried out, its reply is lost.
    Late,   ///< The reply comes late.
    Refuse, ///< The request is not carried out but refused.
    Cut,    ///< The first part of a data reply comes, the rest is lost.
    Flip,   ///< One bit of the reply is wrong.
    Noise,  ///< Bytes that are no status come before the reply.
    Stray,  ///< A status byte that belongs to nothing comes before the reply.
    Lose    ///< One to three bytes of the request are lost on the way to the device.
};

/// By `Fault`, as on the command line and in reports.
constexpr std::array faultNames = {"drop", "late", "refuse", "cut", "flip", "noise", "stray", "lose"};

constexpr std::size_t indexOf(Fault fault)
{
    return static_cast<std::size_t>(fault);
}

/// What is to go wrong.
struct FaultPlan {
    /// Adds a fault as the command line names it, "NAME" or "NAME:VALUE". A stuck bit may be added to others, any
    /// other fault only once.
    /// @return an empty text, or what is wrong with `text`.
    QString add(const QString& text);

    /// One line a fault: its name, what its value means, what it does.
    static QString help();

    /// By `Fault`, 0 to 1.
    std::array<double, faultNames.size()> probabilities = {};
    std::vector<StuckBit> stuckBits;
    /// The first blank check after the first erase answers that the memory is not blank.
    bool dirtyBlank = false;
    /// The line hangs up at this request, counted from 1, instead of a reply; 0: never.
    std::int64_t hangupAt = 0;
    /// What `hangupAt` counts from: the first request with this command, or the first of all.
    std::optional<Command> hangupFrom;
    /// For this time after its start the device ignores what it receives.
    std::chrono::milliseconds startDelay{0};
    /// Names of the faults that were added.
    QStringList given;
};

} // namespace devicesim
