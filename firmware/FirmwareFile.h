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

    /// Bytes of the largest file that `load` takes. Far above what a device holds; keeps a wrong pick in the file
    /// dialog from filling the memory.
    static constexpr qint64 maxFileSize = qint64{16} * 1024 * 1024;

    /// Reads the file at `path` into a new object. Anything but a regular file is refused, and one above `maxFileSize`.
    /// What `MemoryImage::readIntelHex` logs goes to Qt's log.
    /// @return false on failure, with the reason in `errorText`; the object is then fit for nothing else.
    bool load(const QString& path);

    /// Reads the content of a firmware file into a new object, and logs nothing.
    /// @return as `load`
    bool parse(const QByteArray& content);

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
    /// What is wrong with the Intel HEX text of the image.
    IntelHexFaults hexFaults;
    /// Whether the text ends in the marker of its padding. A file without it may be cut short.
    bool isPadded = false;

private:
    void takeHeader(const QJsonObject& header);
    bool decryptImage(const QByteArray& cipherText);
    bool fail(const QString& reason);
};
