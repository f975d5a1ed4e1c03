#include "tools/fwpack/PackCommand.h"

#include "firmware/FirmwareFile.h"
#include "tools/fwpack/BurnPlan.h"
#include "tools/fwpack/HexInput.h"
#include "tools/fwpack/LogCapture.h"
#include "tools/fwpack/Printable.h"

#include <QFileInfo>
#include <QSaveFile>
#include <QTextStream>

namespace fwpack
{

namespace
{

bool isSameFile(const QString& path, const QString& otherPath)
{
    const QString canonical = QFileInfo(path).canonicalFilePath();
    return !canonical.isEmpty() && canonical == QFileInfo(otherPath).canonicalFilePath();
}

/// Compares what was read with what was packed.
/// @return what is wrong, or nothing.
QString compare(const FirmwareFile& firmware, const PackageHeader& header, const MemoryImage& image)
{
    if (firmware.device != header.device || firmware.version != header.version || firmware.target != header.target ||
        firmware.baudrate != header.baudrate || firmware.link != header.link) {
        return "the header reads back changed";
    }
    return firmware.image.lines() == image.lines() ? QString() : "the image reads back changed";
}

/// Reads the package as a burn does before it gets to the disk.
/// @return what is wrong, or nothing.
QString rehearse(const QByteArray& package, const PackageHeader& header, const MemoryImage& image)
{
    if (package.size() > FirmwareFile::maxFileSize) {
        return QString("is too large: %1 bytes where a burn takes %2")
            .arg(package.size())
            .arg(FirmwareFile::maxFileSize);
    }
    FirmwareFile firmware;
    return firmware.parse(package) ? compare(firmware, header, image) : firmware.errorText;
}

/// Reads the file as a burn does.
/// @return what is wrong, or nothing.
QString readBack(const QString& path, const PackageHeader& header, const MemoryImage& image)
{
    FirmwareFile firmware;
    return firmware.load(path) ? compare(firmware, header, image) : firmware.errorText;
}

/// Puts the package at `path`, whole or not at all.
/// @return what is wrong, or nothing.
QString save(const QString& path, const QByteArray& package)
{
    // QSaveFile puts a new file in the place of the old one, and would do so with a device node too.
    if (const QFileInfo info(path); info.exists() && !info.isFile()) {
        return "is no regular file, and is not overwritten";
    }
    QSaveFile file(path);
    if (!file.open(QIODevice::WriteOnly) || file.write(package) != package.size() || !file.commit()) {
        return file.errorString();
    }
    return {};
}

} // namespace

bool packFirmware(const PackRequest& request, QTextStream& out, QTextStream& err)
{
    const auto complain = [&err](const QString& path, const QString& text) {
        err << "fwpack: " << escaped(path) << ": " << text << '\n';
    };

    const LogCapture repeated; // what the input has told as warnings is met again whenever the package is read
    HexInput input;
    const bool accepted = input.load(request.input);
    for (const QString& warning : std::as_const(input.warnings)) {
        complain(request.input, "warning: " + warning);
    }
    if (!accepted) {
        complain(request.input, input.errorText);
        return false;
    }
    if (isSameFile(request.input, request.output)) {
        complain(request.output, "is the input, and is not overwritten");
        return false;
    }

    const PackageHeader& header = request.header;
    const QByteArray package = makePackage(header, input.text);
    if (package.isEmpty()) {
        complain(request.output, "libcrypto failed to encrypt the image");
        return false;
    }
    QString fault = rehearse(package, header, input.image);
    if (fault.isEmpty()) {
        fault = save(request.output, package);
    }
    if (fault.isEmpty()) {
        fault = readBack(request.output, header, input.image);
    }
    if (!fault.isEmpty()) {
        complain(request.output, fault);
        return false;
    }

    const BurnPlan plan(input.image);
    out << escaped(request.output) << ": " << quoted(header.target) << ' ' << header.version << " for device "
        << hexNumber(header.device) << ", " << counted(plan.bytes, "byte") << " in " << counted(plan.blocks, "block")
        << '\n';
    return true;
}

} // namespace fwpack
