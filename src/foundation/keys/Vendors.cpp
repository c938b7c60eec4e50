#include "foundation/keys/Vendors.h"

#include <algorithm>

#include "platform/text/Ascii.h"

namespace dmf::internal {

bool isAcceptedVendor(std::string_view vendor) noexcept
{
    return std::ranges::any_of(
        kDMVendors, [vendor](std::string_view accepted) { return equalIgnoringAsciiCase(vendor, accepted); });
}

} // namespace dmf::internal
