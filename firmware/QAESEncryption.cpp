#include "firmware/QAESEncryption.h"

#include <QtEndian>

#include <algorithm>
#include <bit>
#include <functional>

namespace
{

using ByteTable = std::array<std::uint8_t, 256>;

/// A column of the state, row 0 in the low byte.
using Column = std::uint32_t;
using Columns = std::array<Column, 4>;
using MixTable = std::array<Column, 256>;

constexpr std::uint8_t row(Column column, int index)
{
    return static_cast<std::uint8_t>(column >> 8 * index);
}

/// The product of two elements of GF(2^8) (FIPS 197, section 4.2).
constexpr std::uint8_t multiply(unsigned a, unsigned b)
{
    unsigned product = 0;
    for (; b != 0; b >>= 1) {
        product ^= b & 1 ? a : 0;
        a = a & 0x80 ? (a << 1) ^ 0x11B : a << 1;
    }
    return static_cast<std::uint8_t>(product);
}

/// The S-box (FIPS 197, section 5.1.1): the inverse in GF(2^8), then the affine transformation.
constexpr ByteTable substitution()
{
    constexpr unsigned generator = 0x03;
    constexpr unsigned generatorInverse = 0xF6;
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

/// What the byte in row 0 of a column contributes to the column in MixColumns or InvMixColumns (FIPS 197,
/// sections 5.1.3 and 5.3.3), where `factors` are the first column of the matrix. The other rows contribute the same,
/// rotated.
constexpr MixTable makeMixTable(const std::array<unsigned, 4>& factors)
{
    MixTable table{};
    for (unsigned byte = 0; byte < table.size(); ++byte) {
        for (std::size_t row = 0; row < factors.size(); ++row) {
            table[byte] |= Column{multiply(byte, factors[row])} << 8 * row;
        }
    }
    return table;
}

/// The 16 bytes at `offset` as columns.
Columns columnsAt(const QByteArray& bytes, qsizetype offset)
{
    Columns columns{};
    qFromLittleEndian<Column>(bytes.constData() + offset, columns.size(), columns.data());
    return columns;
}

// The steps of a round, on the columns of the state. With the inverse S-box, `step` 3 and the factors of InvMixColumns
// they are the inverse ones.

void addRoundKey(Columns& columns, const QByteArray& expandedKey, int round)
{
    const Columns roundKey = columnsAt(expandedKey, qsizetype{round} * 16);
    std::transform(columns.begin(), columns.end(), roundKey.begin(), columns.begin(), std::bit_xor<Column>());
}

void substituteBytes(Columns& columns, const ByteTable& box)
{
    for (Column& column : columns) {
        column = Column{box[row(column, 0)]} | Column{box[row(column, 1)]} << 8 | Column{box[row(column, 2)]} << 16 |
                 Column{box[row(column, 3)]} << 24;
    }
}

/// The byte in row r of a column comes from `step` times r columns to the right, going round.
void shiftRows(Columns& columns, std::size_t step)
{
    const Columns old = columns;
    for (std::size_t i = 0; i < old.size(); ++i) {
        columns[i] = (old[i] & 0xFF) | (old[(i + step) % 4] & 0xFF00) | (old[(i + 2 * step) % 4] & 0xFF0000) |
                     (old[(i + 3 * step) % 4] & 0xFF000000);
    }
}

void mixColumns(Columns& columns, const MixTable& table)
{
    for (Column& column : columns) {
        column = table[row(column, 0)] ^ std::rotl(table[row(column, 1)], 8) ^ std::rotl(table[row(column, 2)], 16) ^
                 std::rotl(table[row(column, 3)], 24);
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
    // Not copies: the block transforms make one anyway.
    const auto blockAt = [this, &rawText](qsizetype at) {
        return QByteArray::fromRawData(rawText.constData() + at, std::min<qsizetype>(blockLength, rawText.size() - at));
    };
    const qsizetype wholeBlocks = rawText.size() - rawText.size() % blockLength;
    QByteArray result;
    result.reserve(rawText.size());
    QByteArray chain = iv;
    switch (mode) {
    case Ecb:
        for (qsizetype at = 0; at < wholeBlocks; at += blockLength) {
            result += invCipher(expandedKey, blockAt(at));
        }
        break;
    case Cbc:
        for (qsizetype at = 0; at < wholeBlocks; at += blockLength) {
            result += xorBytes(invCipher(expandedKey, blockAt(at)), chain);
            chain = blockAt(at);
        }
        break;
    case Cfb:
        for (qsizetype at = 0; at < rawText.size(); at += blockLength) {
            result += xorBytes(blockAt(at), cipher(expandedKey, chain));
            chain = blockAt(at);
        }
        break;
    case Ofb: {
        QByteArray stream = cipher(expandedKey, iv);
        while (stream.size() < rawText.size()) {
            stream += cipher(expandedKey, stream.last(blockLength));
        }
        result = xorBytes(stream, rawText);
        break;
    }
    default:
        break;
    }
    return result;
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

/// Cipher of FIPS 197, section 5.1.
QByteArray QAESEncryption::cipher(const QByteArray& expandedKey, const QByteArray& block)
{
    static constexpr MixTable mixTable = makeMixTable({0x02, 0x01, 0x01, 0x03});
    QByteArray result(block.constData(), block.size());
    state = &result;
    Columns columns = columnsAt(*state, 0);
    addRoundKey(columns, expandedKey, 0);
    for (int round = 1; round < nr; ++round) {
        substituteBytes(columns, sbox);
        shiftRows(columns, 1);
        mixColumns(columns, mixTable);
        addRoundKey(columns, expandedKey, round);
    }
    substituteBytes(columns, sbox);
    shiftRows(columns, 1);
    addRoundKey(columns, expandedKey, nr);
    qToLittleEndian<Column>(columns.data(), columns.size(), state->data());
    state = nullptr;
    return result;
}

/// InvCipher of FIPS 197, section 5.3.
QByteArray QAESEncryption::invCipher(const QByteArray& expandedKey, const QByteArray& block)
{
    static constexpr MixTable inverseMixTable = makeMixTable({0x0E, 0x09, 0x0D, 0x0B});
    QByteArray result(block.constData(), block.size());
    state = &result;
    Columns columns = columnsAt(*state, 0);
    addRoundKey(columns, expandedKey, nr);
    for (int round = nr - 1; round > 0; --round) {
        shiftRows(columns, 3);
        substituteBytes(columns, rsbox);
        addRoundKey(columns, expandedKey, round);
        mixColumns(columns, inverseMixTable);
    }
    shiftRows(columns, 3);
    substituteBytes(columns, rsbox);
    addRoundKey(columns, expandedKey, 0);
    qToLittleEndian<Column>(columns.data(), columns.size(), state->data());
    state = nullptr;
    return result;
}

QByteArray QAESEncryption::xorBytes(const QByteArray& a, const QByteArray& b)
{
    QByteArray result = a.first(std::min(a.size(), b.size()));
    std::transform(result.cbegin(), result.cend(), b.cbegin(), result.begin(), std::bit_xor<char>());
    return result;
}
