#include <dmf/ADMProtectionSpaceImp.h>

#include <utility>

ADMProtectionSpaceImp::~ADMProtectionSpaceImp() = default;

void ADMProtectionSpaceImp::setRealm(std::optional<std::string> realm)
{
    realm_ = std::move(realm);
}
