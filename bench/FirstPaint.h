#pragma once

#include <QEvent>
#include <QTimer>
#include <QWidget>

#include <cstdio>
#include <cstdlib>

#include <sys/resource.h>

/// Ends the process after the first paint of a window, so that the time which the process took is that of its start.
/// Prints the peak memory of the process, in KiB.
class FirstPaint : public QObject
{
public:
    explicit FirstPaint(QWidget& window) { window.installEventFilter(this); }

protected:
    bool eventFilter(QObject*, QEvent* event) override
    {
        if (event->type() == QEvent::Paint) {
            // The children paint in the same turn of the event loop.
            QTimer::singleShot(0, this, &FirstPaint::endProcess);
        }
        return false;
    }

private:
    static void endProcess()
    {
        rusage usage{};
        getrusage(RUSAGE_SELF, &usage);
        std::printf("%ld\n", usage.ru_maxrss);
        std::fflush(stdout);
        std::_Exit(EXIT_SUCCESS);
    }
};
