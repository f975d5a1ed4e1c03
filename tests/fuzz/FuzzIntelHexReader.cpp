#include "firmware/MemoryImage.h"

#include <QBuffer>

#include <cstdlib>
#include <numeric>

/// The reader once more, in a plain form that leaves lines and digits to Qt.
static bool readPlainly(MemoryImage& image, QBuffer& text)
{
    for (std::uint32_t base = 0; !text.atEnd();) {
        const QByteArray line = text.readLine();
        const QByteArray record = QByteArray::fromHex(line.mid(1));
        const auto* const bytes = reinterpret_cast<const std::uint8_t*>(record.data());
        if (line[0] != ':' || record.size() < 5 || record.size() < 5 + bytes[0] ||
            std::accumulate(record.begin(), record.end(), 0) % 256 != 0) {
            return false;
        }
        const auto word = [bytes](int at) { return std::uint32_t{bytes[at]} << 8 | bytes[at + 1]; };
        if (bytes[3] == 0) {
            image.insert(base + word(1), bytes + 4, bytes[0]);
        } else if ((bytes[3] == 2 || bytes[3] == 4) && bytes[0] == 2 && word(1) == 0) {
            base = word(4) << (bytes[3] == 2 ? 4 : 16);
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
    MemoryImage image;
    if (!text.seek(0) || image.readIntelHex(text) != accepted || image.lines() != expected.lines()) {
        std::abort();
    }
    return 0;
}
