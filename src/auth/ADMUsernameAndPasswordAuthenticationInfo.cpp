#include <dmf/ADMUsernameAndPasswordAuthenticationInfo.h>

#include <dmf/ADMServiceInfo.h>

#include "auth/KeyringPlaces.h"
#include "foundation/logging/AfterFork.h"
#include "platform/secrets/Keyring.h"

using namespace dmf::internal;

namespace {

KeyringPlaceOf placeOf(const std::shared_ptr<ADMServiceInfo>& serviceInfo)
{
    return [&serviceInfo](double seconds) { return keyringPlace(serviceInfo, seconds); };
}

} // namespace

std::shared_ptr<ADMUsernameAndPasswordAuthenticationInfo> ADMUsernameAndPasswordAuthenticationInfo::initWithUsername(
    std::optional<std::string_view> username, std::optional<std::string_view> password, std::int32_t persistence)
{
    if (!username || !password)
        return nullptr;
    return std::make_shared<ADMUsernameAndPasswordAuthenticationInfo>(Passkey(), *username, *password, persistence);
}

std::shared_ptr<ADMUsernameAndPasswordAuthenticationInfo>
ADMUsernameAndPasswordAuthenticationInfo::initFromKeychainForServiceInfo(
    const std::shared_ptr<ADMServiceInfo>& serviceInfo)
{
    constexpr std::int32_t persistence = 0; // what it was stored with is nobody else's affair
    const bool isServed = serviceInfo && !isRefusedAfterFork();
    const auto item = isServed ? findInKeyring(placeOf(serviceInfo)) : std::nullopt;
    return item ? initWithUsername(item->account, item->password.view(), persistence) : nullptr;
}

ADMUsernameAndPasswordAuthenticationInfo::ADMUsernameAndPasswordAuthenticationInfo(Passkey, std::string_view username,
                                                                                   std::string_view password,
                                                                                   std::int32_t persistence)
    : username_(username), password_(password), persistence_(persistence)
{
}

ADMUsernameAndPasswordAuthenticationInfo::~ADMUsernameAndPasswordAuthenticationInfo() = default;

bool ADMUsernameAndPasswordAuthenticationInfo::storeInKeychainForServiceInfo(
    const std::shared_ptr<ADMServiceInfo>& serviceInfo) const
{
    return serviceInfo && !isRefusedAfterFork() &&
           storeInKeyring(placeOf(serviceInfo), username_, dmf::Secret(password_.view()));
}
