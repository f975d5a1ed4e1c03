#pragma once

#include "tests/support/IntelHex.h"
#include "tests/support/Program.h"
#include "tools/fwpack/Package.h"

#include <QTemporaryDir>

#include <map>

/// Bytes of a device's memory by their address.
using Image = std::map<unsigned, QByteArray>;

constexpr int fastBaudRate = 4000000;

/// Writes a firmware file for a simulated device.
inline bool writeFirmware(const QString& path, const Image& image, int baudRate = fastBaudRate, int link = 0)
{
    return write(path, fwpack::makePackage({0x0300, "7.1", "Board", baudRate, link}, hexText(image)));
}

/// @return the memory of a device that was erased and holds an image.
inline QByteArray memoryWith(const Image& image)
{
    QByteArray memory(0x10000, '\xFF');
    for (const auto& [address, data] : image) {
        memory.replace(qsizetype(address), data.size(), data);
    }
    return memory;
}

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
