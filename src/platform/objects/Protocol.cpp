#include <dmf/platform/Protocol.h>

#include <algorithm>

namespace dmf {

bool Protocol::conformsTo(const Protocol& other) const noexcept
{
    // By name: a plug-in may hold a descriptor of its own for the same interface.
    return name_ == other.name_ ||
           std::ranges::any_of(adopted_, [&](const Protocol* adopted) { return adopted->conformsTo(other); });
}

} // namespace dmf
