#include "firmware/QAESEncryption.h"

#include <cstdlib>

/// The input is a byte each for level, mode and padding, a key of 32 bytes, the length of the vector, the vector, the
/// text.
extern "C" int LLVMFuzzerTestOneInput(const char* bytes, std::size_t size)
{
    const QByteArray input = QByteArray(bytes, qsizetype(size)).leftJustified(36, '\0');
    const auto level = QAESEncryption::Level(input[0] % 3 < 0 ? 3 : input[0] % 3);
    const QByteArray key = input.mid(3, level > QAESEncryption::Aes256 ? 16 : 16 + 8 * level);
    const QByteArray iv = input.mid(36, input[35] % 18);
    const QByteArray text = input.mid(36 + iv.size());
    QAESEncryption aes(level, QAESEncryption::Mode(input[1] % 5), QAESEncryption::Padding(input[2] % 4));
    const QByteArray plain = aes.decode(text, key, iv);
    if (plain.size() > text.size() || !plain.startsWith(aes.removePadding(plain))) {
        std::abort();
    }
    return 0;
}
