#include "serial/SerialPortPosix.h"
#include "tests/serial/PtyLine.h"

int main(int argc, char** argv)
{
    return runSerialPortContract(argc, argv,
        {.makePort = [](const PortSettings& settings) { return std::make_unique<SerialPortPosix>(settings); },
            .makeLine = [] { return std::make_unique<PtyLine>(); },
            .notAPort = "/dev/null"});
}
