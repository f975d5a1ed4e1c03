#include "serial/SerialPort.h"

#include <algorithm>
#include <array>

#ifdef _WIN32
#include "serial/SerialPortWin.h"
#else
#include "serial/SerialPortLinux.h"
#endif

std::unique_ptr<SerialPort> SerialPort::create(const PortSettings& portSettings)
{
#ifdef _WIN32
    return std::make_unique<SerialPortWin>(portSettings);
#else
    return std::make_unique<SerialPortLinux>(portSettings);
#endif
}

void SerialPort::setPortName(const std::string& name)
{
    settings.portName = name;
}

void SerialPort::setBaudRate(std::uint32_t baudRate)
{
    settings.baudRate = baudRate;
    if (isOpen()) {
        applySettings();
    }
}

void SerialPort::setParity(PortParity value)
{
    settings.parity = value;
    if (isOpen()) {
        applySettings();
    }
}

void SerialPort::setTimeouts(std::uint32_t writeMs, std::uint32_t readMs)
{
    settings.writeTimeoutMs = writeMs;
    settings.readTimeoutMs = readMs;
    if (isOpen()) {
        applyTimeouts();
    }
}

std::size_t SerialPort::skip(std::size_t count)
{
    std::array<std::uint8_t, 32> scratch{};
    constexpr int maximumTries = 3;
    std::size_t dropped = 0;
    for (int tries = 0; tries < maximumTries; ++tries) {
        const std::size_t wanted = std::min(scratch.size(), count - dropped);
        if (wanted == 0) {
            break;
        }
        dropped += read(scratch.data(), wanted);
    }
    return dropped;
}
