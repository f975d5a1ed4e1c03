#include "firmware/Base64.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <string_view>

namespace
{

constexpr std::uint8_t noDigit = 0xFF;

constexpr std::array<std::uint8_t, 128> makeDigitValues()
{
    constexpr std::string_view alphabet = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    std::array<std::uint8_t, 128> values{};
    values.fill(noDigit);
    for (std::size_t i = 0; i < alphabet.size(); ++i) {
        values[static_cast<std::uint8_t>(alphabet[i])] = static_cast<std::uint8_t>(i);
    }
    return values;
}

/// The six bits that each ASCII character stands for; `noDigit` for one outside the alphabet.
constexpr std::array<std::uint8_t, 128> digitValues = makeDigitValues();

} // namespace

QByteArray decodeBase64(QStringView text)
{
    QByteArray decoded(text.size() / 4 * 3 + 3, Qt::Uninitialized);
    char* out = decoded.data();
    std::uint32_t bits = 0;
    int pending = 0; // how many low bits are part of no byte yet
    for (const QChar character : text) {
        const char16_t code = character.unicode();
        const std::uint8_t value = code < digitValues.size() ? digitValues[code] : noDigit;
        if (value == noDigit) {
            continue;
        }
        bits = bits << 6 | value;
        pending += 6;
        if (pending >= 8) {
            pending -= 8;
            *out++ = static_cast<char>(bits >> pending);
        }
    }
    decoded.truncate(out - decoded.constData());
    return decoded;
}
