#include "serial/SerialPortPosix.h"
#include "tests/serial/PtyLine.h"

int main(int argc, char** argv)
{
    const auto makePort = [](const PortSettings& settings) { return std::make_unique<SerialPortPosix>(settings); };
    return runSerialPortContract(argc, argv, {makePort, [] { return std::make_unique<PtyLine>(); }, "/dev/null"});
}
