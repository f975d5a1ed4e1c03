#pragma once

#include <QEvent>

#include <cstdint>

/// What the value of a `BurnProgressEvent` is for.
enum class ProgressKind : std::int32_t {
    /// Position of the progress bar.
    Value = 0,
    /// Lower bound of the progress bar.
    Minimum = 1,
    /// Upper bound of the progress bar.
    Maximum = 2,
    /// Whether the user may stop the burn: 1 or 0.
    Enabled = 3,
};

/// A number that a burn has for its observer.
class BurnProgressEvent final : public QEvent
{
public:
    /// The type that Qt gave to these events, valid for this process.
    static const QEvent::Type eventType;

    BurnProgressEvent(ProgressKind progressKind, std::int32_t progressValue);
    ~BurnProgressEvent() override;
    Q_DISABLE_COPY_MOVE(BurnProgressEvent)

    const ProgressKind kind;
    const std::int32_t value;
};
