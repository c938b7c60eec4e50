#include "foundation/keys/Vendors.h"

#include <array>

// The vendors that the library accepts unless a deployment brings a file of its own (-DDMF_VENDOR_FILE=...) with the
// same definition.
namespace dmf::internal {
namespace {

constexpr std::array<std::string_view, 2> kNames{"QL", "Tessaly-Corvan"};

} // namespace

constinit const std::span<const std::string_view> kDMVendors(kNames);

} // namespace dmf::internal
