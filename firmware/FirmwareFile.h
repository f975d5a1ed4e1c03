#pragma once

#include "firmware/BlockScanner.h"
#include "firmware/MemoryImage.h"

#include <QByteArray>
#include <QMap>
#include <QString>
#include <QStringList>

#include <cstdint>

class QJsonObject;
class QJsonValue;

/// What a firmware file says: the fields of its header, and the image that a burn walks.
class FirmwareFile
{
public:
    /// Bytes of the largest file that `load` takes. Far above what a device holds; keeps a wrong pick in the file
    /// dialog from filling the memory.
    static constexpr qint64 maxFileSize = qint64{16} * 1024 * 1024;

    /// The key of all firmware files: AES-128, these sixteen ASCII characters as they stand.
    static constexpr char imageKey[] = "v9!Tq#Lz4$Ym7^Bx";

    /// Bytes of a block of the cipher.
    static constexpr qsizetype cipherBlockLength = 16;

    /// `baudrate` of a file that gives none.
    static constexpr std::int32_t defaultBaudrate = 57600;

    /// `link` of a line that echoes what is sent.
    static constexpr std::int32_t echoLink = 1;

    FirmwareFile() = default;
    ~FirmwareFile() = default;
    Q_DISABLE_COPY_MOVE(FirmwareFile)

    /// Reads the file at `path` into a new object. Anything but a regular file is refused, and one above `maxFileSize`.
    /// What `MemoryImage::readIntelHex` logs goes to Qt's log.
    /// @return false on failure, with the reason in `errorText`; the object is then fit for nothing else but to tell
    /// what is wrong.
    bool load(const QString& path);

    /// As `load`, but logs nothing.
    bool read(const QString& path);

    /// As `read`, with the content of a file.
    bool parse(const QByteArray& content);

    /// Identification of the device that the firmware is for.
    std::uint16_t device = 0x0300;
    QString version;
    QString target;
    /// Speed of the serial line for this firmware, in bits per second.
    std::int32_t baudrate = defaultBaudrate;
    /// Kind of link; every value but `echoLink` has no meaning.
    std::int32_t link = 0;
    MemoryImage image;
    BlockScanner scanner{image};
    /// Why `load` failed; empty after a success.
    QString errorText;

    /// Whether the fields of the header hold what the file says; true after some failures too.
    bool hasHeader = false;
    /// By name, why a field of the header does not count as it stands in the file, for instance "not given".
    QMap<QString, QString> headerNotes;
    /// What is wrong, for instance "Intel HEX: line:0012 too short": what made `load` fail, or what looks damaged in a
    /// file that was read. Shows nothing of the image.
    QStringList faults;

private:
    void takeHeader(const QJsonValue& value);
    std::int32_t takeNumber(const QJsonObject& header, const QString& name, std::int32_t fallback);
    QString takeText(const QJsonObject& header, const QString& name);
    bool takeImage(const QJsonValue& value);
    bool decryptImage(const QByteArray& cipherText);
    bool fail(const QString& reason);

    IntelHexFaults hexFaults;
};
