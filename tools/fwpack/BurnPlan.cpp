#include "tools/fwpack/BurnPlan.h"

#include "firmware/BlockScanner.h"

namespace fwpack
{

namespace
{

constexpr std::size_t burnBlockLength = 512;

} // namespace

BurnPlan::BurnPlan(const MemoryImage& image)
{
    BlockScanner scanner(image);
    for (scanner.reset(0); scanner.next(burnBlockLength);) {
        const qsizetype length = scanner.data.size();
        if (ranges.empty() || ranges.back().last + 1 != scanner.address) {
            ranges.push_back({scanner.address, scanner.address, {}});
        }
        ranges.back().last = static_cast<std::uint32_t>(scanner.address + length - 1);
        ranges.back().blocks.push_back(length);
        bytes += length;
        ++blocks;
    }
}

} // namespace fwpack
