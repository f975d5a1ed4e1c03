// Compares the reader with a plain one that leaves lines and digits to Qt.
#include "firmware/MemoryImage.h"

#include <QBuffer>

#include <cstdlib>
#include <numeric>

static bool readPlainly(MemoryImage& image, QBuffer& text)
{
    for (std::uint32_t base = 0; !text.atEnd();) {
        const QByteArray line = text.readLine();
        const QByteArray record = QByteArray::fromHex(line.mid(1));
        const auto at = [&record](qsizetype i) { return std::uint32_t(std::uint8_t(record[i])); };
        if (!line.startsWith(':') || record.size() < 5 || record.size() < 5 + at(0) ||
            std::accumulate(record.begin(), record.end(), 0) % 256 != 0) {
            return false;
        }
        if (at(3) == 0) {
            image.insert(base + (at(1) << 8 | at(2)), reinterpret_cast<const std::uint8_t*>(&record.data()[4]), at(0));
        } else if ((at(3) == 2 || at(3) == 4) && at(0) == 2 && at(1) == 0 && at(2) == 0) {
            base = (at(4) << 8 | at(5)) << (at(3) == 2 ? 4 : 16);
        }
    }
    return true;
}

extern "C" int LLVMFuzzerTestOneInput(const char* bytes, std::size_t size)
{
    qInstallMessageHandler([](QtMsgType, const QMessageLogContext&, const QString&) {});
    QBuffer text;
    text.setData(bytes, int(size));
    text.open(QIODevice::ReadOnly);
    MemoryImage expected;
    const bool accepted = readPlainly(expected, text);
    text.seek(0);
    MemoryImage image;
    if (image.readIntelHex(text) != accepted || image.lines() != expected.lines()) {
        std::abort();
    }
    return 0;
}
