#pragma once

#include "serial/PortEnumerator.h"

#include <QString>
#include <QStringList>

#include <vector>

/// A serial port that somebody named on the command line.
struct PortChoice {
    /// What the user typed.
    QString given;
    /// The name by which the port is opened.
    QString name;
    /// Serial number of the adapter; empty when the system knows none.
    QString adapterSerial;
};

struct PortChoices {
    std::vector<PortChoice> ports;
    /// Why the choice cannot be made; empty when it can.
    QString problem;
};

/// Finds the ports that `given` names, each of them a name from the list of ports, a path, or a USB adapter as
/// "usb:VID:PID" or "usb:VID:PID:SERIAL" with the ids in hexadecimal. A name that is not in `available` is taken as it
/// is: the list need not know every port. A port that is named twice is a problem, also under different names, and so
/// is a USB adapter that fits no port or several.
PortChoices choosePorts(const QStringList& given, const std::vector<PortInfo>& available);
