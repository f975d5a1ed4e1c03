#include "serial/DeviceApiWin.h"
#include "serial/PortEnumerator.h"
#include "serial/PortScan.h"

std::vector<PortInfo> availablePorts()
{
    DeviceApiWin api;
    return scanPorts(api);
}
