#pragma once

#include <QEvent>
#include <QString>

#include <cstdint>

/// What the text of a `BurnMessageEvent` is for.
enum class MessageKind : std::int32_t {
    /// A line of plain or rich text for the log.
    Log = 1,
    /// A line of plain text for the log, in the error colour.
    Error = 2,
    /// A short name of the current state; an empty text when there is none to show.
    Status = 3,
};

/// A text that a burn has for its observer.
class BurnMessageEvent final : public QEvent
{
public:
    /// The type that Qt gave to these events, valid for this process.
    static const QEvent::Type eventType;

    BurnMessageEvent(MessageKind messageKind, const QString& messageText);
    ~BurnMessageEvent() override;
    Q_DISABLE_COPY_MOVE(BurnMessageEvent)

    const MessageKind kind;
    const QString text;
};
