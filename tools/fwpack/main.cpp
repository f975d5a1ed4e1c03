// Makes firmware files out of Intel HEX.

#include "firmware/BurnLimits.h"
#include "firmware/FirmwareFile.h"
#include "support/CommandLine.h"
#include "support/Printable.h"
#include "tools/fwpack/HexInput.h"
#include "tools/fwpack/Package.h"

#include <QCoreApplication>
#include <QFileInfo>
#include <QSaveFile>

#include <array>
#include <limits>

namespace
{

using fwpack::HexInput;
using fwpack::PackageHeader;

void complainOf(const QString& path, const QString& text)
{
    complain("fwpack", printable(path) + ": " + text);
}

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

/// Reads the package as a burn does, before it gets to the disk.
/// @return what is wrong, or nothing.
QString verifyInMemory(const QByteArray& package, const PackageHeader& header, const MemoryImage& image)
{
    if (package.size() > FirmwareFile::maxFileSize) {
        return QString("is too large: %1 bytes, where a burn takes %2")
            .arg(package.size())
            .arg(FirmwareFile::maxFileSize);
    }
    FirmwareFile firmware;
    return firmware.parse(package) ? compare(firmware, header, image) : firmware.errorText;
}

/// Reads the file as a burn does.
/// @return what is wrong, or nothing.
QString verifyFile(const QString& path, const PackageHeader& header, const MemoryImage& image)
{
    FirmwareFile firmware;
    return firmware.read(path) ? compare(firmware, header, image) : firmware.errorText;
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

/// Makes the firmware file. It is read by the reader of the burn before the output is touched, and again from there.
/// @return what is wrong, or nothing; an existing output is then as it was, unless the medium did not give back what
/// was written to it.
QString writePackage(const QString& path, const PackageHeader& header, const HexInput& input)
{
    const QByteArray package = fwpack::makePackage(header, input.text);
    if (package.isEmpty()) {
        return "libcrypto failed to encrypt the image";
    }
    QString fault = verifyInMemory(package, header, input.image);
    if (fault.isEmpty()) {
        fault = save(path, package);
    }
    return fault.isEmpty() ? verifyFile(path, header, input.image) : fault;
}

/// What is burned of an image.
QString sizeOf(const MemoryImage& image)
{
    qsizetype bytes = 0;
    qsizetype blocks = 0;
    for (BlockScanner scanner(image); nextBurnBlock(scanner); ++blocks) {
        bytes += scanner.data.size();
    }
    return counted(bytes, "byte") + " in " + counted(blocks, "block");
}

ExitStatus packFirmware(const QString& inputPath, const QString& outputPath, const PackageHeader& header)
{
    HexInput input;
    const bool accepted = input.load(inputPath);
    for (const QString& warning : std::as_const(input.warnings)) {
        complainOf(inputPath, "warning: " + warning);
    }
    if (!accepted) {
        complainOf(inputPath, input.errorText);
        return ExitStatus::Failure;
    }
    const QString fault = isSameFile(inputPath, outputPath) ? "is the input, and is not overwritten"
                                                            : writePackage(outputPath, header, input);
    if (!fault.isEmpty()) {
        complainOf(outputPath, fault);
        return ExitStatus::Failure;
    }
    const QString result = QString("%1: %2 %3 for device %4, %5\n")
                               .arg(printable(outputPath), quoted(header.target), header.version,
                                   hexNumber(header.device), sizeOf(input.image));
    return printOut(result.toLocal8Bit()) ? ExitStatus::Success : ExitStatus::Failure;
}

/// The value of an option that must be given.
QString givenText(CommandLine& line, const QString& name)
{
    const std::optional<QString> value = line.text(name);
    if (!value) {
        line.refuse(QString("--%1 is missing").arg(name));
    } else if (printable(*value) != *value) {
        line.refuse(QString("--%1 may hold no control characters").arg(name));
    }
    return value.value_or(QString());
}

ExitStatus pack(CommandLine& line, const QStringList& arguments)
{
    constexpr auto int32Max = std::numeric_limits<std::int32_t>::max();
    constexpr auto int32Min = std::numeric_limits<std::int32_t>::min();

    line.addOption("device", "N", "Identification of the device that the firmware is for, 0 to 0xFFFF.");
    line.addOption("version", "TEXT", "Version of the firmware.");
    line.addOption("target", "TEXT", "Name of the device, as its user knows it.");
    PackageHeader header;
    line.addOption(
        "baudrate", "N", QString("Speed of the serial line in bits per second (default %1).").arg(header.baudrate));
    line.addOption("link", "N", "Kind of the link: 1 for a line that echoes what is sent (default 0).");
    line.setEpilogue("\nNumbers are decimal, or hexadecimal behind 0x.\n"
                     "Exit status: 0 for success, 1 for a failure, 2 for wrong usage.\n");
    line.parse(arguments);
    givenText(line, "device");
    header.device = line.number<std::uint16_t>("device", 0, 0xFFFF).value_or(0);
    header.version = givenText(line, "version");
    header.target = givenText(line, "target");
    header.baudrate = line.number<std::int32_t>("baudrate", 1, int32Max).value_or(header.baudrate);
    header.link = line.number<std::int32_t>("link", int32Min, int32Max).value_or(header.link);
    const QStringList files = line.operands(2, "INPUT.hex and OUTPUT");
    if (const std::optional<ExitStatus> status = line.verdict()) {
        return *status;
    }
    return packFirmware(files[0], files[1], header);
}

} // namespace

int main(int argc, char* argv[])
{
    QCoreApplication::setApplicationName("fwpack");
    QCoreApplication::setApplicationVersion(TAVIMORA_VERSION);
    const QCoreApplication application(argc, argv);
    const std::array commands = {
        Command{"pack", "--device N --version TEXT --target TEXT [--baudrate N] [--link N] INPUT.hex OUTPUT",
            "Makes the firmware file OUTPUT from the Intel HEX file INPUT.hex.", pack}};
    return static_cast<int>(runCommand(commands, QCoreApplication::arguments().mid(1)));
}
