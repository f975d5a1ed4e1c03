#include "serial/PortEnumerator.h"
#include "serial/PortRules.h"
#include "serial/UdevPorts.h"
#include "serial/VirtualPorts.h"

std::vector<PortInfo> availablePorts()
{
    std::vector<PortInfo> ports = udevPorts();
    appendNewNames(ports, virtualPortNames());
    return ports;
}
