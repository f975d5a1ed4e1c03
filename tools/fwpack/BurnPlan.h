#pragma once

#include <QtGlobal>

#include <cstdint>
#include <vector>

class MemoryImage;

namespace fwpack
{

/// Addresses that a burn writes without a gap, and the lengths of the blocks in which it does.
struct BurnRange {
    std::uint32_t first = 0;
    /// Inclusive.
    std::uint32_t last = 0;
    std::vector<qsizetype> blocks;

    qsizetype bytes() const { return qsizetype(last - first) + 1; }
};

/// What a burn writes of an image, in address order, cut into blocks as the burn cuts it.
class BurnPlan
{
public:
    explicit BurnPlan(const MemoryImage& image);

    std::vector<BurnRange> ranges;
    qsizetype bytes = 0;
    qsizetype blocks = 0;
};

} // namespace fwpack
