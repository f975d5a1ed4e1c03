#include "serial/SerialPortLinux.h"
#include "tests/support/PtyLine.h"

int main(int argc, char** argv)
{
    const auto makePort = [](const PortSettings& settings) { return std::make_unique<SerialPortLinux>(settings); };
    return runSerialPortContract(argc, argv, {makePort, [] { return std::make_unique<PtyLine>(); }, "/dev/null"});
}
