#include "tools/fwpack/HexInput.h"

#include "firmware/BlockScanner.h"
#include "firmware/BurnLimits.h"
#include "firmware/FirmwareFile.h"
#include "support/Printable.h"

#include <QBuffer>
#include <QFile>

#include <algorithm>

namespace fwpack
{

bool HexInput::load(const QString& path)
{
    if (!readFile(path)) {
        return false;
    }
    normalise();
    if (!readImage()) {
        return false;
    }
    if (BlockScanner scanner(image); !scanner.next(4)) {
        return fail("holds no data");
    }
    if (const auto address = firstAddressOutOfReach(image)) {
        return fail(QString("data at %1 lies above %2: a firmware file of it could not be burned")
                        .arg(hexNumber(*address), hexNumber(lastBurnAddress)));
    }
    return true;
}

bool HexInput::readFile(const QString& path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly)) {
        return fail(file.errorString());
    }
    text = file.read(FirmwareFile::maxFileSize + 1);
    if (file.error() != QFileDevice::NoError) {
        return fail(file.errorString());
    }
    if (text.size() > FirmwareFile::maxFileSize) {
        return fail(QString("is larger than the %1 bytes of a firmware file").arg(FirmwareFile::maxFileSize));
    }
    return true;
}

void HexInput::normalise()
{
    text.replace("\r\n", "\n");
    qsizetype used = text.size();
    while (used > 0 && QByteArrayView("\n\r\t ").contains(text[used - 1])) {
        --used;
    }
    const qsizetype blankLines = text.mid(used).count('\n') - 1;
    text.truncate(used);
    if (used > 0) {
        text.append('\n');
    }
    if (blankLines > 0) {
        warnings.append(QString("blank lines at the end left out: %1").arg(blankLines));
    }
}

bool HexInput::readImage()
{
    QBuffer buffer(&text);
    buffer.open(QIODevice::ReadOnly);
    IntelHexFaults faults;
    const bool accepted = image.readIntelHex(buffer, faults);
    auto fatal =
        std::find_if(faults.begin(), faults.end(), [](const IntelHexFault& fault) { return fault.losesData(); });
    if (fatal == faults.end() && !accepted) {
        --fatal;
    }
    warnings += describeFaults(IntelHexFaults(faults.begin(), fatal));
    return fatal == faults.end() || fail(fatal->text());
}

bool HexInput::fail(const QString& reason)
{
    errorText = reason;
    return false;
}

} // namespace fwpack
