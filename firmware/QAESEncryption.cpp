#include "firmware/QAESEncryption.h"

#include <algorithm>
#include <array>
#include <bit>
#include <functional>

namespace
{

using ByteTable = std::array<std::uint8_t, 256>;

/// A byte of each of eight blocks, which go through the rounds side by side.
using Bytes = std::uint64_t;
constexpr qsizetype blocksAtOnce = sizeof(Bytes);
constexpr Bytes oneInEach = 0x0101010101010101;

/// The states of these blocks (FIPS 197, section 3.4): states[r][c] are the bytes in row r and column c.
using States = std::array<std::array<Bytes, 4>, 4>;

/// The products with {02} in GF(2^8) (FIPS 197, section 4.2.1).
constexpr Bytes xtime(Bytes bytes)
{
    const Bytes high = bytes & 0x80 * oneInEach;
    const Bytes reduction = (high - (high >> 7)) & 0x1B * oneInEach; // the difference is 0x7F where the high bit is set
    return (bytes ^ high) << 1 ^ reduction;
}

/// The product of two elements of GF(2^8) (FIPS 197, section 4.2).
constexpr std::uint8_t multiply(Bytes a, unsigned b)
{
    Bytes product = 0;
    for (; b != 0; b >>= 1) {
        product ^= b & 1 ? a : 0;
        a = xtime(a);
    }
    return static_cast<std::uint8_t>(product);
}

/// The S-box (FIPS 197, section 5.1.1): the inverse in GF(2^8), then the affine transformation.
constexpr ByteTable substitution()
{
    constexpr std::uint8_t generator = 0x03;
    constexpr std::uint8_t generatorInverse = 0xF6;
    ByteTable table{0x63};
    std::uint8_t element = 1;
    std::uint8_t inverse = 1;
    do {
        table[element] = static_cast<std::uint8_t>(inverse ^ std::rotl(inverse, 1) ^ std::rotl(inverse, 2) ^
                                                   std::rotl(inverse, 3) ^ std::rotl(inverse, 4) ^ 0x63);
        element = multiply(element, generator);
        inverse = multiply(inverse, generatorInverse);
    } while (element != 1);
    return table;
}

constexpr ByteTable inverseOf(const ByteTable& table)
{
    ByteTable result{};
    for (std::size_t i = 0; i < table.size(); ++i) {
        result[table[i]] = static_cast<std::uint8_t>(i);
    }
    return result;
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

/// Byte i of a block lies in row i % 4 of column i / 4.
States loadBlocks(const char* blocks, std::size_t count)
{
    States states{};
    for (std::size_t block = 0; block < count; ++block) {
        for (std::size_t i = 0; i < 16; ++i) {
            states[i % 4][i / 4] |= Bytes{static_cast<std::uint8_t>(blocks[16 * block + i])} << 8 * block;
        }
    }
    return states;
}

void storeBlocks(const States& states, char* blocks, std::size_t count)
{
    for (std::size_t block = 0; block < count; ++block) {
        for (std::size_t i = 0; i < 16; ++i) {
            blocks[16 * block + i] = static_cast<char>(states[i % 4][i / 4] >> 8 * block);
        }
    }
}

// The steps of a round (FIPS 197, sections 5.1.1 to 5.1.4 and 5.3.1 to 5.3.3), each for all blocks.

void addRoundKey(States& states, const QByteArray& expandedKey, int round)
{
    const char* const key = expandedKey.constData() + qsizetype{16} * round;
    for (std::size_t i = 0; i < 16; ++i) {
        states[i % 4][i / 4] ^= static_cast<std::uint8_t>(key[i]) * oneInEach;
    }
}

/// With the S-box SubBytes, with the inverse one InvSubBytes.
void substituteBytes(States& states, const ByteTable& box)
{
    for (auto& row : states) {
        for (Bytes& bytes : row) {
            Bytes substituted = 0;
            for (unsigned shift = 0; shift < 64; shift += 8) {
                substituted |= Bytes{box[bytes >> shift & 0xFF]} << shift;
            }
            bytes = substituted;
        }
    }
}

/// Row r moves left by r columns.
void shiftRows(States& states)
{
    const States old = states;
    for (std::size_t r = 1; r < 4; ++r) {
        for (std::size_t c = 0; c < 4; ++c) {
            states[r][c] = old[r][(c + r) % 4];
        }
    }
}

/// Row r moves right by r columns.
void invShiftRows(States& states)
{
    const States old = states;
    for (std::size_t r = 1; r < 4; ++r) {
        for (std::size_t c = 0; c < 4; ++c) {
            states[r][(c + r) % 4] = old[r][c];
        }
    }
}

/// Row r of a column becomes {02} a[r] + {03} a[r+1] + a[r+2] + a[r+3].
void mixColumns(States& states)
{
    for (std::size_t c = 0; c < 4; ++c) {
        const std::array<Bytes, 4> a = {states[0][c], states[1][c], states[2][c], states[3][c]};
        const Bytes sum = a[0] ^ a[1] ^ a[2] ^ a[3];
        for (std::size_t r = 0; r < 4; ++r) {
            states[r][c] = a[r] ^ sum ^ xtime(a[r] ^ a[(r + 1) % 4]);
        }
    }
}

/// Row r of a column becomes {0e} a[r] + {0b} a[r+1] + {0d} a[r+2] + {09} a[r+3]: {08} times the sum of all, {04} times
/// a[r] + a[r+2], {02} times a[r] + a[r+1], and the other three once.
void invMixColumns(States& states)
{
    for (std::size_t c = 0; c < 4; ++c) {
        const std::array<Bytes, 4> a = {states[0][c], states[1][c], states[2][c], states[3][c]};
        const Bytes sum = a[0] ^ a[1] ^ a[2] ^ a[3];
        const Bytes doubled = xtime(sum);
        for (std::size_t r = 0; r < 4; ++r) {
            const Bytes doubledTwice = xtime(doubled ^ a[r] ^ a[(r + 2) % 4]);
            const Bytes doubledThrice = xtime(doubledTwice ^ a[r] ^ a[(r + 1) % 4]);
            states[r][c] = doubledThrice ^ sum ^ a[r];
        }
    }
}

} // namespace

constexpr ByteTable QAESEncryption::sbox = substitution();
constexpr ByteTable QAESEncryption::rsbox = inverseOf(sbox);
constexpr std::array<std::uint8_t, 14> QAESEncryption::rcon = {
    0x8D, 0x01, 0x02, 0x04, 0x08, 0x10, 0x20, 0x40, 0x80, 0x1B, 0x36, 0x6C, 0xD8, 0xAB};

QAESEncryption::QAESEncryption(Level keyLevel, Mode blockMode, Padding paddingForm)
    : level(keyLevel)
    , mode(blockMode)
    , nk(keyWords(keyLevel))
    , nr(nk + 6)
    , padding(paddingForm)
{
}

QByteArray QAESEncryption::decode(const QByteArray& rawText, const QByteArray& key, const QByteArray& iv)
{
    if (mode != Ecb && iv.size() != blockLength) {
        return {};
    }
    const QByteArray expandedKey = expandKey(key);
    switch (mode) {
    case Ecb:
        return invCipher(expandedKey, rawText);
    case Cbc:
        return xorBytes(invCipher(expandedKey, rawText), iv + rawText);
    case Cfb:
        return xorBytes(cipher(expandedKey, iv + rawText), rawText);
    case Ofb: {
        QByteArray stream = cipher(expandedKey, iv);
        while (stream.size() < rawText.size()) {
            stream += cipher(expandedKey, stream.last(blockLength));
        }
        return xorBytes(stream, rawText);
    }
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

/// Copies the whole blocks and applies the rounds of a block transform to the states of these copies.
template <typename Rounds>
QByteArray QAESEncryption::transform(const QByteArray& blocks, const Rounds& rounds)
{
    QByteArray result = blocks.first(blocks.size() - blocks.size() % blockLength);
    state = &result;
    for (qsizetype at = 0; at < state->size(); at += blocksAtOnce * blockLength) {
        const qsizetype count = std::min(blocksAtOnce, (state->size() - at) / blockLength);
        States states = loadBlocks(state->constData() + at, static_cast<std::size_t>(count));
        rounds(states);
        storeBlocks(states, state->data() + at, static_cast<std::size_t>(count));
    }
    state = nullptr;
    return result;
}

/// Cipher of FIPS 197, section 5.1, of each whole block.
QByteArray QAESEncryption::cipher(const QByteArray& expandedKey, const QByteArray& blocks)
{
    return transform(blocks, [&](States& states) {
        addRoundKey(states, expandedKey, 0);
        for (int round = 1; round < nr; ++round) {
            substituteBytes(states, sbox);
            shiftRows(states);
            mixColumns(states);
            addRoundKey(states, expandedKey, round);
        }
        substituteBytes(states, sbox);
        shiftRows(states);
        addRoundKey(states, expandedKey, nr);
    });
}

/// InvCipher of FIPS 197, section 5.3, of each whole block.
QByteArray QAESEncryption::invCipher(const QByteArray& expandedKey, const QByteArray& blocks)
{
    return transform(blocks, [&](States& states) {
        addRoundKey(states, expandedKey, nr);
        for (int round = nr - 1; round > 0; --round) {
            invShiftRows(states);
            substituteBytes(states, rsbox);
            addRoundKey(states, expandedKey, round);
            invMixColumns(states);
        }
        invShiftRows(states);
        substituteBytes(states, rsbox);
        addRoundKey(states, expandedKey, 0);
    });
}

QByteArray QAESEncryption::xorBytes(const QByteArray& a, const QByteArray& b)
{
    QByteArray result = a.first(std::min(a.size(), b.size()));
    std::transform(result.cbegin(), result.cend(), b.cbegin(), result.begin(), std::bit_xor<char>());
    return result;
}
