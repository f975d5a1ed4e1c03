#pragma once

#include <QString>

#include <functional>
#include <memory>

/// Reads standard input line by line within the event loop of the thread that made the object. One object at a time.
class LineInput
{
public:
    /// @param onLine gets each line without its line end; of a line of more than 64 KiB only the beginning
    /// @param onEnd is called once, at the end of the input
    LineInput(std::function<void(const QString&)> onLine, std::function<void()> onEnd);
    LineInput(const LineInput&) = delete;
    LineInput& operator=(const LineInput&) = delete;
    ~LineInput();

private:
    struct Reader;
    std::unique_ptr<Reader> reader;
};
