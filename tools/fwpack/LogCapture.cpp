#include "tools/fwpack/LogCapture.h"

namespace fwpack
{

LogCapture* LogCapture::current = nullptr;

LogCapture::LogCapture()
    : previous(qInstallMessageHandler(&LogCapture::handle))
{
    current = this;
}

LogCapture::~LogCapture()
{
    qInstallMessageHandler(previous);
    current = nullptr;
}

void LogCapture::handle(QtMsgType type, const QMessageLogContext& context, const QString& text)
{
    if (type == QtCriticalMsg) {
        current->messages.append(text);
    } else {
        current->previous(type, context, text);
    }
}

} // namespace fwpack
