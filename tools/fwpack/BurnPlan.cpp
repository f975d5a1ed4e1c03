#include "tools/fwpack/BurnPlan.h"

#include "firmware/BlockScanner.h"
#include "firmware/BurnLimits.h"

namespace fwpack
{

BurnPlan::BurnPlan(const MemoryImage& image)
{
    BlockScanner scanner(image);
    while (nextBurnBlock(scanner)) {
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
