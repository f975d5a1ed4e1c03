#pragma once

#include <array>
#include <bit>
#include <cstddef>
#include <cstdint>

/// The constant tables of AES, computed from their definitions in FIPS 197 at compile time.
namespace aes
{

using ByteTable = std::array<std::uint8_t, 256>;

/// One table for each row of the state; an entry is a whole column, row 0 in the low byte.
using ColumnTables = std::array<std::array<std::uint32_t, 256>, 4>;

/// The product of two elements of GF(2^8) (FIPS 197, section 4.2).
constexpr std::uint8_t multiply(unsigned a, unsigned b)
{
    unsigned product = 0;
    for (; b != 0; b >>= 1) {
        if (b & 1) {
            product ^= a;
        }
        a = a & 0x80 ? (a << 1) ^ 0x11B : a << 1;
    }
    return static_cast<std::uint8_t>(product);
}

/// The S-box (FIPS 197, section 5.1.1): the inverse in GF(2^8), then the affine transformation.
constexpr ByteTable substitution()
{
    constexpr unsigned generator = 0x03;
    constexpr unsigned generatorInverse = 0xF6;
    ByteTable table{};
    table[0] = 0x63;
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

/// The table that undoes `table`.
constexpr ByteTable inverseOf(const ByteTable& table)
{
    ByteTable result{};
    for (std::size_t i = 0; i < table.size(); ++i) {
        result[table[i]] = static_cast<std::uint8_t>(i);
    }
    return result;
}

/// The round constants (FIPS 197, section 5.2); index 0 is not one of them and never read.
constexpr std::array<std::uint8_t, 14> roundConstants()
{
    std::array<std::uint8_t, 14> table{0x8D, 0x01};
    for (std::size_t i = 2; i < table.size(); ++i) {
        table[i] = multiply(table[i - 1], 2);
    }
    return table;
}

/// What each byte of a column contributes to the column after it passed `substitutes` and then the matrix
/// multiplication of MixColumns or InvMixColumns, whose matrix has `factors` as its first column.
constexpr ColumnTables columnTables(const ByteTable& substitutes, const std::array<std::uint8_t, 4>& factors)
{
    ColumnTables tables{};
    for (std::size_t i = 0; i < substitutes.size(); ++i) {
        std::uint32_t column = 0;
        for (std::size_t row = 0; row < factors.size(); ++row) {
            column |= std::uint32_t{multiply(substitutes[i], factors[row])} << 8 * row;
        }
        for (std::size_t row = 0; row < tables.size(); ++row) {
            tables[row][i] = std::rotl(column, static_cast<int>(8 * row));
        }
    }
    return tables;
}

} // namespace aes
