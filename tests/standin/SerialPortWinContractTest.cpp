#include "serial/SerialPortWin.h"
#include "tests/support/SerialPortContract.h"

#ifdef _WIN32
int main(int argc, char** argv)
{
    if (!qEnvironmentVariableIsSet("TAVIMORA_TEST_PORTS")) {
        return 77; // no pair of connected ports: skipped
    }
    return runSerialPortContract(argc, argv,
        {.makePort = [](const PortSettings& settings) { return std::make_unique<SerialPortWin>(settings); },
            .makeLine = {},
            .notAPort = "NUL",
            .writeTakesLineTime = false, // a driver may take bytes into a buffer of its own
            .onWine = GetProcAddress(GetModuleHandleW(L"ntdll.dll"), "wine_get_version") != nullptr});
}
#else
#include "standin/win32/Win32Layer.h"
#include "tests/support/PtyLine.h"

/// The serial port COM15, over a pseudo-terminal.
class ComLine : public PtyLine
{
public:
    ComLine() { win32::connectPort("COM15", PtyLine::portName()); }
    std::string portName() const override { return "COM15"; }
};

int main(int argc, char** argv)
{
    win32::connectPort("NUL", "/dev/null");
    return runSerialPortContract(argc, argv,
        {.makePort = [](const PortSettings& settings) { return std::make_unique<SerialPortWin>(settings); },
            .makeLine = [] { return std::make_unique<ComLine>(); },
            .notAPort = "NUL"});
}
#endif
