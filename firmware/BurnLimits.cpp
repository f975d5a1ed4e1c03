#include "firmware/BurnLimits.h"

#include "firmware/BlockScanner.h"
#include "firmware/MemoryImage.h"

bool nextBurnBlock(BlockScanner& scanner)
{
    if (!scanner.next(maxBurnBlockLength)) {
        return false;
    }
    // A block of full length may end in unused bytes behind the last address, which would wrap onto the first ones.
    const std::uint32_t start = scanner.address;
    const std::uint64_t end = std::uint64_t{start} + static_cast<std::uint64_t>(scanner.data.size());
    if (start <= lastBurnAddress && end > lastBurnAddress + 1) {
        scanner.reset(start);
        return scanner.next(lastBurnAddress + 1 - start);
    }
    return true;
}

std::optional<std::uint32_t> firstAddressOutOfReach(const MemoryImage& image)
{
    return image.firstDataAbove(lastBurnAddress);
}
