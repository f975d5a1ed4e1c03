#include "bootloader/BootFrame.h"

BootFrame boot::makeFrame(BootCommand command, std::uint16_t address, std::uint16_t count)
{
    const std::array<std::uint16_t, frameWordsWithoutData - 1> words = {firstWord(command), address, count};
    return {words[0], words[1], words[2], requestChecksum(words)};
}

BootFrame boot::makeFrame(BootCommand command, std::uint16_t address, std::span<const std::uint8_t> data)
{
    const std::size_t count = wordsFor(data.size());
    BootFrame frame;
    frame.reserve(count + frameWordsWithoutData);
    frame.push_back(firstWord(command));
    frame.push_back(address);
    frame.push_back(static_cast<std::uint16_t>(count));
    for (std::size_t i = 0; i < data.size(); i += 2) {
        frame.push_back(wordFrom(data[i], i + 1 < data.size() ? data[i + 1] : std::uint8_t{0xFF}));
    }
    frame.push_back(requestChecksum(frame));
    return frame;
}
