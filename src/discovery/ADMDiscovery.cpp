#include <dmf/ADMDiscovery.h>

#include <dmf/platform/Error.h>

namespace {
[[noreturn]] void unrecognized(std::string_view operation)
{
    throw dmf::UnrecognizedOperation("ADMDiscovery", operation);
}
} // namespace

ADMDiscovery::ADMDiscovery() = default;

ADMDiscovery::~ADMDiscovery() = default;

std::shared_ptr<ADMDiscoveryDelegate> ADMDiscovery::delegate() const
{
    unrecognized("delegate");
}

void ADMDiscovery::setDelegate(const std::shared_ptr<ADMDiscoveryDelegate>&)
{
    unrecognized("setDelegate:");
}

std::shared_ptr<ADMDiscoveryFilter> ADMDiscovery::filter() const
{
    unrecognized("filter");
}

void ADMDiscovery::setFilter(std::shared_ptr<ADMDiscoveryFilter>)
{
    unrecognized("setFilter:");
}

std::vector<std::string> ADMDiscovery::availableConnectionTypes() const
{
    unrecognized("availableConnectionTypes");
}

void ADMDiscovery::setParametersToResolve(std::optional<dmf::Dictionary>, std::optional<std::string_view>)
{
    unrecognized("setParametersToResolve:forConnectionType:");
}

void ADMDiscovery::scheduleDiscovery()
{
    unrecognized("scheduleDiscovery");
}

void ADMDiscovery::scheduleDiscoveryForConnectionTypes(const std::vector<std::string>&)
{
    unrecognized("scheduleDiscoveryForConnectionTypes:");
}

ADMDiscovery::Services ADMDiscovery::performDiscoveryWithTimeout(double)
{
    unrecognized("performDiscoveryWithTimeout:");
}

ADMDiscovery::Services ADMDiscovery::performDiscoveryForConnectionTypes(const std::vector<std::string>&, double)
{
    unrecognized("performDiscoveryForConnectionTypes:withTimeout:");
}

void ADMDiscovery::stop()
{
    unrecognized("stop");
}

void ADMDiscovery::scheduleInRunLoop(std::shared_ptr<dmf::RunLoop>, std::optional<std::string_view>)
{
    unrecognized("scheduleInRunLoop:forMode:");
}

void ADMDiscovery::removeFromRunLoop(const std::shared_ptr<dmf::RunLoop>&, std::optional<std::string_view>)
{
    unrecognized("removeFromRunLoop:forMode:");
}
