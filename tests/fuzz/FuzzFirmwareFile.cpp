#include "firmware/Base64.h"
#include "firmware/FirmwareFile.h"

#include <cstdlib>

extern "C" int LLVMFuzzerTestOneInput(const char* bytes, std::size_t size)
{
    qInstallMessageHandler([](QtMsgType, const QMessageLogContext&, const QString&) {});
    const QByteArray content(bytes, qsizetype(size));
    FirmwareFile file;
    if (file.parse(content) != file.errorText.isEmpty() ||
        decodeBase64(QString::fromLatin1(content)) != QByteArray::fromBase64(content)) {
        std::abort();
    }
    while (file.scanner.next(512)) {
    }
    return 0;
}
