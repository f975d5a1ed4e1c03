#include "burn/BurnMessageEvent.h"
#include "burn/BurnProgressEvent.h"

namespace
{

QEvent::Type newEventType() noexcept
{
    return static_cast<QEvent::Type>(QEvent::registerEventType());
}

} // namespace

// Both types stand in one file, so that they are always registered in this order.
const QEvent::Type BurnMessageEvent::eventType = newEventType();
const QEvent::Type BurnProgressEvent::eventType = newEventType();

BurnMessageEvent::BurnMessageEvent(MessageKind messageKind, const QString& messageText)
    : QEvent(eventType)
    , kind(messageKind)
    , text(messageText)
{
}

BurnMessageEvent::~BurnMessageEvent() = default;

BurnProgressEvent::BurnProgressEvent(ProgressKind progressKind, std::int32_t progressValue)
    : QEvent(eventType)
    , kind(progressKind)
    , value(progressValue)
{
}

BurnProgressEvent::~BurnProgressEvent() = default;
