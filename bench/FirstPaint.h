#pragma once

#include <QApplication>
#include <QEvent>
#include <QFile>
#include <QTimer>
#include <QWidget>

#include <chrono>
#include <cstdio>

/// Ends the program behind the first paint of a window and prints how long after `startNs` that was, in milliseconds,
/// and the resident memory of the process, in KiB.
class FirstPaint : public QObject
{
public:
    /// @param startNs when the process was started, in nanoseconds of the system clock.
    FirstPaint(QWidget& window, long long startNs)
        : start(startNs)
    {
        window.installEventFilter(this);
    }

protected:
    bool eventFilter(QObject* watched, QEvent* event) override
    {
        if (event->type() == QEvent::Paint) {
            watched->removeEventFilter(this);
            // The children paint in the same turn of the event loop.
            QTimer::singleShot(0, this, [this] { report(); });
        }
        return false;
    }

private:
    void report() const
    {
        const auto now = std::chrono::system_clock::now().time_since_epoch();
        const long long ns = std::chrono::duration_cast<std::chrono::nanoseconds>(now).count() - start;
        QFile status(QStringLiteral("/proc/self/status"));
        QByteArray resident;
        if (status.open(QIODevice::ReadOnly)) {
            const QByteArray text = status.readAll();
            resident = text.mid(text.indexOf("VmRSS:") + 6).simplified().split(' ').value(0);
        }
        std::printf("%.2f %s\n", static_cast<double>(ns) / 1e6, resident.constData());
        QApplication::quit();
    }

    long long start;
};
