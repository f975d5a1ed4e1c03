#include "firmware/QAESEncryption.h"

#include <cstdlib>

/// The input: a byte each for level, mode, padding and the length of the vector, a key of 32 bytes, the vector, the
/// text.
extern "C" int LLVMFuzzerTestOneInput(const char* bytes, std::size_t size)
{
    const QByteArray input = QByteArray(bytes, qsizetype(size)).leftJustified(36, '\0');
    const int level = input[0] & 3;
    const QByteArray iv = input.mid(36, input[3] & 31);
    const QByteArray text = input.mid(36 + iv.size());
    QAESEncryption aes(QAESEncryption::Level{level}, QAESEncryption::Mode(input[1]), QAESEncryption::Padding(input[2]));
    const QByteArray plain = aes.decode(text, input.mid(4, level == 3 ? 16 : 16 + 8 * level), iv);
    if (plain.size() > text.size() || !plain.startsWith(aes.removePadding(plain))) {
        std::abort();
    }
    return 0;
}
