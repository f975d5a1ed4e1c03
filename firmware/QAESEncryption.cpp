#include "firmware/QAESEncryption.h"

#include <QtEndian>

#include <algorithm>
#include <functional>
#include <span>
#include <utility>
#include <vector>

namespace
{

/// Round keys as columns (row 0 in the low byte), in the order in which a block transform adds them.
using KeySchedule = std::vector<std::uint32_t>;

constexpr std::size_t columns = 4;

constexpr std::uint8_t row(std::uint32_t column, std::size_t index)
{
    return static_cast<std::uint8_t>(column >> 8 * index);
}

int keyWords(int level)
{
    switch (level) {
    case QAESEncryption::Aes192:
        return 6;
    case QAESEncryption::Aes256:
        return 8;
    default:
        return 4;
    }
}

std::uint32_t loadColumn(const void* bytes)
{
    return qFromLittleEndian<quint32>(bytes);
}

KeySchedule keySchedule(const QByteArray& expandedKey)
{
    KeySchedule schedule;
    for (qsizetype i = 0; i < expandedKey.size(); i += 4) {
        schedule.push_back(loadColumn(expandedKey.constData() + i));
    }
    return schedule;
}

/// One direction of the block transform. A round is three steps on the columns of the state, all done by looking up:
/// the rows are shifted, the bytes substituted, the columns mixed; the last round does not mix.
///
/// `shift` tells by how many columns to the right of its place a byte of row 1 comes from (twice and three times that
/// in the rows 2 and 3): 1 for ShiftRows, 3 for InvShiftRows.
template <std::size_t shift>
void transformBlock(std::span<char, 16> block, const KeySchedule& schedule, const aes::ColumnTables& mixed,
    const aes::ByteTable& substituted)
{
    const std::uint32_t* key = schedule.data();
    const std::uint32_t* const lastKey = key + schedule.size() - columns;
    std::array<std::uint32_t, columns> state{};
    for (std::size_t c = 0; c < columns; ++c) {
        state[c] = loadColumn(&block[4 * c]) ^ key[c];
    }
    const auto shifted = [&state](std::size_t c, std::size_t r) { return row(state[(c + shift * r) % columns], r); };
    for (key += columns; key != lastKey; key += columns) {
        std::array<std::uint32_t, columns> next{};
        for (std::size_t c = 0; c < columns; ++c) {
            next[c] = mixed[0][shifted(c, 0)] ^ mixed[1][shifted(c, 1)] ^ mixed[2][shifted(c, 2)] ^
                      mixed[3][shifted(c, 3)] ^ key[c];
        }
        state = next;
    }
    for (std::size_t c = 0; c < columns; ++c) {
        const std::uint32_t column =
            std::uint32_t{substituted[shifted(c, 0)]} | std::uint32_t{substituted[shifted(c, 1)]} << 8 |
            std::uint32_t{substituted[shifted(c, 2)]} << 16 | std::uint32_t{substituted[shifted(c, 3)]} << 24;
        qToLittleEndian<quint32>(column ^ key[c], &block[4 * c]);
    }
}

/// `transformBlock` on each block of `text`, in place; `text` has a whole number of them.
template <std::size_t shift>
void transformBlocks(
    QByteArray& text, const KeySchedule& schedule, const aes::ColumnTables& mixed, const aes::ByteTable& substituted)
{
    char* const end = text.data() + text.size();
    for (char* block = text.data(); block != end; block += 16) {
        transformBlock<shift>(std::span<char, 16>(block, 16), schedule, mixed, substituted);
    }
}

} // namespace

QAESEncryption::QAESEncryption(Level keyLevel, Mode blockMode, Padding paddingForm)
    : level(keyLevel)
    , mode(blockMode)
    , nk(keyWords(keyLevel))
    , nr(nk + 6)
    , padding(paddingForm)
{
}

QByteArray QAESEncryption::decode(QByteArray rawText, const QByteArray& key, const QByteArray& iv)
{
    if (mode != Ecb && iv.size() != blockLength) {
        return {};
    }
    const QByteArray expandedKey = expandKey(key);
    switch (mode) {
    case Ecb:
        return invCipher(expandedKey, std::move(rawText));
    case Cbc:
        return xorBytes(invCipher(expandedKey, rawText), iv + rawText);
    case Cfb:
        return xorBytes(cipher(expandedKey, iv + rawText), rawText);
    case Ofb:
        return xorBytes(keyStream(expandedKey, iv, rawText.size()), rawText);
    default:
        return {};
    }
}

QByteArray QAESEncryption::removePadding(QByteArray rawText) const
{
    if (rawText.isEmpty()) {
        return rawText;
    }
    qsizetype length = rawText.size();
    const auto lastNonZero = std::find_if(rawText.crbegin(), rawText.crend(), [](char byte) { return byte != 0; });
    const qsizetype zeros = lastNonZero - rawText.crbegin();
    switch (padding) {
    case Zero:
        length -= zeros;
        break;
    case Pkcs7:
        if (const auto count = static_cast<std::int8_t>(rawText.back()); count > 0 && count <= length) {
            length -= count;
        }
        break;
    case Iso:
        if (lastNonZero != rawText.crend() && *lastNonZero == '\x80') {
            length -= zeros + 1;
        }
        break;
    default:
        break;
    }
    rawText.truncate(length);
    return rawText;
}

/// KeyExpansion of FIPS 197, section 5.2.
QByteArray QAESEncryption::expandKey(const QByteArray& key) const
{
    QByteArray expanded = key;
    for (int i = nk; i < (nr + 1) * nb; ++i) {
        QByteArray word = expanded.last(4);
        const auto substitute = [&word] {
            for (char& byte : word) {
                byte = static_cast<char>(sbox[static_cast<std::uint8_t>(byte)]);
            }
        };
        if (i % nk == 0) {
            std::rotate(word.begin(), word.begin() + 1, word.end());
            substitute();
            word[0] = static_cast<char>(word[0] ^ rcon[static_cast<std::size_t>(i / nk)]);
        } else if (level == Aes256 && i % nk == 4) {
            substitute();
        }
        expanded += xorBytes(word, expanded.sliced(expanded.size() - 4 * qsizetype{nk}, 4));
    }
    return expanded;
}

/// Cipher of FIPS 197, section 5.1, on each whole block of a text.
QByteArray QAESEncryption::cipher(const QByteArray& expandedKey, QByteArray blocks)
{
    static constexpr aes::ColumnTables mixed = aes::columnTables(sbox, {0x02, 0x01, 0x01, 0x03});
    blocks.chop(blocks.size() % blockLength);
    state = &blocks;
    transformBlocks<1>(*state, keySchedule(expandedKey), mixed, sbox);
    state = nullptr;
    return blocks;
}

/// InvCipher of FIPS 197, section 5.3, on each whole block of a text. The round keys pass InvMixColumns beforehand, so
/// that a round can look up substituted and mixed bytes in one step ("equivalent inverse cipher", section 5.3.5).
QByteArray QAESEncryption::invCipher(const QByteArray& expandedKey, QByteArray blocks)
{
    static constexpr aes::ColumnTables mixed = aes::columnTables(rsbox, {0x0E, 0x09, 0x0D, 0x0B});
    const auto invMixColumns = [](std::uint32_t column) {
        return mixed[0][sbox[row(column, 0)]] ^ mixed[1][sbox[row(column, 1)]] ^ mixed[2][sbox[row(column, 2)]] ^
               mixed[3][sbox[row(column, 3)]];
    };
    KeySchedule schedule = keySchedule(expandedKey);
    std::transform(schedule.begin() + nb, schedule.end() - nb, schedule.begin() + nb, invMixColumns);
    for (auto front = schedule.begin(), back = schedule.end() - nb; front < back; front += nb, back -= nb) {
        std::swap_ranges(front, front + nb, back);
    }
    blocks.chop(blocks.size() % blockLength);
    state = &blocks;
    transformBlocks<3>(*state, schedule, mixed, rsbox);
    state = nullptr;
    return blocks;
}

/// The output blocks of OFB: `iv` enciphered, and then each block made of the one before it.
QByteArray QAESEncryption::keyStream(const QByteArray& expandedKey, const QByteArray& iv, qsizetype length)
{
    QByteArray stream;
    for (QByteArray block = iv; stream.size() < length; stream += block) {
        block = cipher(expandedKey, block);
    }
    return stream;
}

QByteArray QAESEncryption::xorBytes(const QByteArray& a, const QByteArray& b)
{
    QByteArray result = a.first(std::min(a.size(), b.size()));
    std::transform(result.cbegin(), result.cend(), b.cbegin(), result.begin(), std::bit_xor<char>());
    return result;
}
