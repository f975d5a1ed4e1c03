#include <QByteArray>

// Without a console QtTest on Windows writes to the debugger, unless this says that nobody reads there.
[[maybe_unused]] static const bool isSet = qputenv("QT_FORCE_STDERR_LOGGING", "1");
