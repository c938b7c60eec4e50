#include <dmf/ADMDiscovery.h>
#include <dmf/IDMServiceDiscovery.h>

#include <array>

namespace {
using Operations = std::string_view;

constexpr std::array<Operations, 13> kDiscoveryOperations{
    "setDelegate:",
    "delegate",
    "setFilter:",
    "filter",
    "availableConnectionTypes",
    "scheduleDiscovery",
    "scheduleDiscoveryForConnectionTypes:",
    "performDiscoveryWithTimeout:",
    "performDiscoveryForConnectionTypes:withTimeout:",
    "setParametersToResolve:forConnectionType:",
    "stop",
    "removeFromRunLoop:forMode:",
    "scheduleInRunLoop:forMode:",
};
constexpr dmf::Protocol kDiscovery("ADMDiscovery", {}, kDiscoveryOperations);

constexpr std::array<Operations, 1> kDiscoveryFilterOperations{"isAcceptedService:"};
constexpr dmf::Protocol kDiscoveryFilter("ADMDiscoveryFilter", {}, kDiscoveryFilterOperations);

constexpr std::array<Operations, 6> kServiceDiscoveryOperations{
    "initWithServiceName:connectionType:parameters:",
    "setDelegate:",
    "delegate",
    "setParametersToResolve:",
    "startServiceDiscovery:",
    "stop",
};
constexpr dmf::Protocol kServiceDiscovery("IDMServiceDiscovery", {}, kServiceDiscoveryOperations);
} // namespace

const dmf::Protocol& ADMDiscovery::protocol()
{
    return kDiscovery;
}

const dmf::Protocol& ADMDiscoveryFilter::protocol()
{
    return kDiscoveryFilter;
}
ADMDiscoveryFilter::~ADMDiscoveryFilter() = default;

const dmf::Protocol& IDMServiceDiscovery::protocol()
{
    return kServiceDiscovery;
}
IDMServiceDiscovery::~IDMServiceDiscovery() = default;
