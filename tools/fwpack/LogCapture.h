#pragma once

#include <QStringList>
#include <QtGlobal>

namespace fwpack
{

/// Collects what goes to Qt's log at critical level, for as long as it lives. Captures may nest, and the innermost one
/// collects; all live on one thread.
class LogCapture
{
public:
    LogCapture();
    ~LogCapture();
    LogCapture(const LogCapture&) = delete;
    LogCapture& operator=(const LogCapture&) = delete;

    QStringList messages;

private:
    static void handle(QtMsgType type, const QMessageLogContext& context, const QString& text);

    static LogCapture* innermost;
    static QtMessageHandler original;
    LogCapture* const outer;
};

} // namespace fwpack
