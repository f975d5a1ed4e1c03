#pragma once

#include <QFile>
#include <QProcess>
#include <QStringList>
#include <QTemporaryDir>

/// @return the content of a file; empty when it cannot be read.
inline QByteArray contentOf(const QString& path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

inline bool write(const QString& path, const QByteArray& content)
{
    QFile file(path);
    return file.open(QIODevice::WriteOnly) && file.write(content) == content.size();
}

/// devicesim as a process of its own, with a memory of zeros and a folder for its files.
struct SimulatedDevice {
    static constexpr int limitMs = 60000;

    ~SimulatedDevice() { end(); }

    /// @return whether the device is on its port.
    bool start(const QStringList& options)
    {
        process.setProcessChannelMode(QProcess::ForwardedErrorChannel);
        const bool prepared = write(memoryFile, untouched);
        process.start(DEVICESIM, QStringList{"--link", port, "--memory", memoryFile} + options);
        return prepared && process.waitForReadyRead(limitMs);
    }

    /// Ends the device, which writes its memory.
    void end()
    {
        process.terminate();
        process.waitForFinished(limitMs);
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
