#pragma once

#include "firmware/BlockScanner.h"
#include "firmware/MemoryImage.h"

#include <QByteArray>
#include <QString>

#include <cstdint>

class QJsonObject;

/// What a firmware file says: the fields of its header, and the image that a burn walks.
class FirmwareFile
{
public:
    FirmwareFile() = default;
    ~FirmwareFile() = default;
    Q_DISABLE_COPY_MOVE(FirmwareFile)

    /// Reads the file at `path` into a new object. Anything but a regular file is refused, and one above 128 MiB.
    /// @return false on failure, with the reason in `errorText`; the object is then fit for nothing else.
    bool load(const QString& path);

    /// Reads the content of a firmware file into a new object; the part of `load` behind the file system.
    /// @return as `load`
    bool parse(QByteArray content);

    /// Identification of the device that the firmware is for.
    std::uint16_t device = 0x0300;
    QString version;
    QString target;
    /// Speed of the serial line for this firmware, in bits per second.
    std::int32_t baudrate = 57600;
    /// Kind of link; 1 is a line that echoes what is sent, every other value has no meaning.
    std::int32_t link = 0;
    MemoryImage image;
    BlockScanner scanner{image};
    /// Why `load` failed; empty after a success.
    QString errorText;

private:
    void takeHeader(const QJsonObject& header);
    bool decryptImage(QByteArray cipherText);
    bool fail(const QString& reason);
};
