#include "firmware/FirmwareFile.h"

#include <cstdlib>

extern "C" int LLVMFuzzerTestOneInput(const char* bytes, std::size_t size)
{
    qInstallMessageHandler([](QtMsgType, const QMessageLogContext&, const QString&) {});
    FirmwareFile file;
    if (file.parse(QByteArray(bytes, qsizetype(size))) != file.errorText.isEmpty()) {
        std::abort();
    }
    while (file.scanner.next(512)) {
    }
    return 0;
}
