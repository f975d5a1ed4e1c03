#pragma once

#include "support/ExitStatus.h"

#include <QStringList>

/// `tavimora-cli burn`: burns one firmware file on the device at one port.
/// @param arguments what stands behind the command's name.
ExitStatus burnCommand(const QStringList& arguments);
