#pragma once

#include "tools/devicesim/FaultPlan.h"

#include <cstddef>
#include <cstdint>
#include <random>
#include <string>
#include <vector>

namespace devicesim
{

/// Rolls the dice of a plan. The same seed and the same requests give the same faults.
class FaultInjector
{
public:
    FaultInjector(const FaultPlan& faultPlan, std::uint64_t seed);

    /// A byte has arrived.
    /// @param startsRequest whether it looks like the first one of a request.
    /// @return whether it is lost.
    bool losesByte(bool startsRequest);

    bool happens(Fault fault);

    /// Applies what can happen to a reply on its way, and adds the names of what did to `names`, separated by commas.
    void damage(std::vector<std::uint8_t>& reply, std::string& names);

private:
    std::size_t pick(std::size_t first, std::size_t last);
    void cut(std::vector<std::uint8_t>& reply);
    void flip(std::vector<std::uint8_t>& reply);
    void precede(std::vector<std::uint8_t>& reply, bool byStatus);

    FaultPlan plan;
    std::mt19937_64 generator;
    /// Of the request under way: bytes that still pass, and bytes that are lost behind them.
    std::size_t passing = 0;
    std::size_t losing = 0;
};

/// Adds a name to a list separated by commas.
void appendFaultName(std::string& names, const char* name);

} // namespace devicesim
