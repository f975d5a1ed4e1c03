#pragma once

#include "tools/devicesim/DeviceConfig.h"

#include <QString>
#include <QStringList>

namespace devicesim
{

/// What the command line asks for.
struct Options {
    DeviceConfig device;
    /// Empty: where the list of ports finds it.
    QString linkPath;
    /// Empty: the memory is lost at the end.
    QString memoryFile;
    /// Empty: no report.
    QString reportFile;
    bool verbose = false;
    /// The user asked for this text instead of a device.
    QString help;
};

/// @param arguments with the program's name.
/// @return an empty text, or what is wrong with the arguments.
QString readOptions(const QStringList& arguments, Options& options);

} // namespace devicesim
