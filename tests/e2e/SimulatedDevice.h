#pragma once

#include "tests/support/Program.h"

#include <QTemporaryDir>

/// devicesim as a process of its own, with a memory of zeros and a folder for its files.
struct SimulatedDevice {
    ~SimulatedDevice() { end(); }

    /// @return whether the device is on its port.
    bool start(const QStringList& options)
    {
        process.setProcessChannelMode(QProcess::ForwardedErrorChannel);
        const bool prepared = write(memoryFile, untouched);
        process.start(DEVICESIM, QStringList{"--link", port, "--memory", memoryFile} + options);
        return prepared && process.waitForReadyRead(programLimitMs);
    }

    /// Ends the device, which writes its memory.
    void end()
    {
        process.terminate();
        process.waitForFinished(programLimitMs);
    }

    QByteArray memory()
    {
        end();
        return contentOf(memoryFile);
    }

    const QByteArray untouched = QByteArray(0x10000, '\0');
    const QTemporaryDir folder;
    const QString port = folder.filePath("port");
    const QString memoryFile = folder.filePath("memory");
    QProcess process;
};
