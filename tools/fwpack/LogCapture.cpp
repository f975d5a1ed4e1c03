#include "tools/fwpack/LogCapture.h"

#include <utility>

namespace fwpack
{

LogCapture* LogCapture::innermost = nullptr;
QtMessageHandler LogCapture::original = nullptr;

LogCapture::LogCapture()
    : outer(std::exchange(innermost, this))
{
    if (outer == nullptr) {
        original = qInstallMessageHandler(&LogCapture::handle);
    }
}

LogCapture::~LogCapture()
{
    innermost = outer;
    if (outer == nullptr) {
        qInstallMessageHandler(original);
    }
}

void LogCapture::handle(QtMsgType type, const QMessageLogContext& context, const QString& text)
{
    if (type == QtCriticalMsg) {
        innermost->messages.append(text);
    } else {
        original(type, context, text);
    }
}

} // namespace fwpack
