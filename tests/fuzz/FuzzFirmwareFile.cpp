#include "firmware/FirmwareFile.h"

#include <cstdlib>

extern "C" int LLVMFuzzerTestOneInput(const char* bytes, std::size_t size)
{
    const QByteArray content(bytes, qsizetype(size));
    FirmwareFile file;
    if (file.parse(content) != file.errorText.isEmpty()) {
        std::abort();
    }
    while (file.scanner.next(512)) {
    }
    return 0;
}
