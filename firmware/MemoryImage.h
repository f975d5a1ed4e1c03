#pragma once

#include "firmware/IntelHexFault.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>

class QIODevice;

/// Inclusive range of byte addresses, in whole lines.
struct AddressRange {
    std::uint32_t first = 0;
    std::uint32_t last = 0;

    bool operator==(const AddressRange&) const = default;
};

/// Sixteen bytes of a device's memory; byte i of the line with index n lies at address n * 16 + i.
using MemoryLine = std::array<std::uint8_t, 16>;

/// What a firmware places in the address space of a device, as a sparse map of lines. A byte of value 0xFF counts as
/// unused, and memory that no line covers reads as 0xFF.
class MemoryImage
{
public:
    using Lines = std::map<std::uint32_t, MemoryLine>;

    void clear();

    /// Writes `count` bytes from `address` on; bytes written earlier are overwritten. The address is computed in 32
    /// bits: behind 0xFFFFFFFF follows 0.
    void insert(std::uint32_t address, const std::uint8_t* bytes, std::size_t count);

    /// The lines that the image holds, from the first byte of the lowest to the last byte of the highest; both 0 for an
    /// empty image.
    AddressRange addressRange() const;

    /// The lowest address above `limit` whose byte is not 0xFF; nothing if there is none.
    std::optional<std::uint32_t> firstDataAbove(std::uint32_t limit) const;

    /// Replaces the content with the data records of an Intel HEX text. `device` is open for reading. A line that is
    /// rejected, and a record of unknown type, go to Qt's log at critical level.
    /// @return false when a line was rejected; the lines read so far then stay.
    bool readIntelHex(QIODevice& device);

    /// The same, but logs nothing and appends to `faults` all that is wrong with the text.
    bool readIntelHex(QIODevice& device, IntelHexFaults& faults);

    /// The lines in address order, by line index (address / 16).
    const Lines& lines() const { return content; }

private:
    MemoryLine& lineAt(std::uint32_t index);

    Lines content;
};
