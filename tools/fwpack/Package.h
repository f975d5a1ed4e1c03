#pragma once

#include "firmware/FirmwareFile.h"

#include <QByteArray>
#include <QString>

#include <cstdint>

namespace fwpack
{

/// The header of a firmware file that is to be made.
struct PackageHeader {
    std::uint16_t device = 0;
    QString version;
    QString target;
    /// Bits per second, above 0.
    std::int32_t baudrate = FirmwareFile::defaultBaudrate;
    std::int32_t link = 0;
};

/// The content of a firmware file as `FirmwareFile` reads it: a JSON object with the header and the image. The image is
/// `hexText`, padded by ISO/IEC 7816-4 (0x80, then zero bytes up to a whole block), encrypted with AES-128 in ECB mode,
/// in Base64 on one line.
/// @return an empty array if the encryption failed.
QByteArray makePackage(const PackageHeader& header, const QByteArray& hexText);

} // namespace fwpack
