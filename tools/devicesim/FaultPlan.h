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

/// What may go wrong with a request, by chance or with a given one. Some faults have a value, which is given with a
/// placed fault, and otherwise drawn or the default.
enum class Fault : std::uint8_t {
    Drop,     ///< The request is carried out, its reply is lost.
    Late,     ///< The reply comes late, by a number of milliseconds.
    Refuse,   ///< The request is not carried out but refused.
    Cut,      ///< The first bytes of a data reply come, the value tells how many; the rest is lost.
    Flip,     ///< One bit of the reply is wrong: the value counts from the lowest bit of the first byte.
    Noise,    ///< Bytes that are no status come before the reply.
    Stray,    ///< A byte that belongs to nothing comes before the reply, a status byte if it is drawn.
    Lose,     ///< One to three bytes of the request are lost on the way to the device. Only by chance.
    Ignore,   ///< The request is neither carried out nor answered.
    NotBlank, ///< The request is not carried out, and the answer is that the memory is not blank.
    BadBit,   ///< The lowest bit of the first data byte in a reply is wrong, and the checksum fits.
    Twice,    ///< The reply comes twice.
    Restart,  ///< The request is ignored like all that come for a number of milliseconds.
    Swap,     ///< As `Restart`, and then a device with another id answers; or the first one again.
    HangUp    ///< The line hangs up instead of a reply.
};

/// By `Fault`, as on the command line and in reports.
inline constexpr std::array faultNames = {"drop", "late", "refuse", "cut", "flip", "noise", "stray", "lose", "ignore",
    "not-blank", "bad-bit", "twice", "restart", "swap", "hangup"};

constexpr std::size_t indexOf(Fault fault)
{
    return static_cast<std::size_t>(fault);
}

/// A fault that happens to a given request.
struct PlacedFault {
    Fault fault = Fault::Drop;
    RequestKind request = RequestKind::Version;
    /// Which request of its kind, counted from 1 as the host sends them; 0: each one.
    int number = 0;
    std::optional<int> value;

    /// As the command line takes it, for example "late:700@write.3".
    QString toText() const;
};

/// What is to go wrong.
struct FaultPlan {
    /// Adds a fault as the command line names it, "NAME", "NAME:VALUE" or "NAME[:VALUE]@REQUEST[.N]". A stuck bit and a
    /// fault at a request may be added to others, any other fault only once.
    /// @return an empty text, or what is wrong with `text`.
    QString add(const QString& text);

    /// One line a fault: its name, what its value means, what it does.
    static QString help();

    /// By `Fault`, 0 to 1 for each request.
    std::array<double, faultNames.size()> probabilities = {};
    std::vector<PlacedFault> placed;
    std::vector<StuckBit> stuckBits;
    /// For this time after its start the device ignores what it receives.
    std::chrono::milliseconds startDelay{0};
    /// Names of the faults that were added and may not be added again.
    QStringList given;
};

} // namespace devicesim
