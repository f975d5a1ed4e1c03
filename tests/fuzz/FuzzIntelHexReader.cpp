#include "firmware/MemoryImage.h"

#include <QBuffer>

#include <cstdlib>

extern "C" int LLVMFuzzerTestOneInput(const char* bytes, std::size_t size)
{
    QBuffer text;
    text.setData(bytes, int(size));
    text.open(QIODevice::ReadOnly);
    MemoryImage image;
    IntelHexFaults faults;
    const bool accepted = image.readIntelHex(text, faults);
    const bool rejected = !faults.empty() && faults.back().rejectsLine();
    if (accepted == rejected || image.lines().size() > 3 * size) {
        std::abort();
    }
    return 0;
}
