#include <dmf/ADMUsernameAndPasswordAuthenticationInfo.h>

#include <dmf/ADMServiceInfo.h>

#include "platform/secrets/Keyring.h"

using namespace dmf::internal;

namespace {

/// Where the keyring keeps what belongs to the service; nothing for a service without a URI. A service is called by its
/// model, which people know, or else by its URI. A service that does not know its model asks its device, for as long as
/// that takes, so this is for the keyring's thread.
KeyringPlaceOf placeOf(const std::shared_ptr<ADMServiceInfo>& serviceInfo)
{
    return [serviceInfo]() -> std::optional<KeyringPlace> {
        const auto uri = serviceInfo->uri();
        if (!uri)
            return std::nullopt;
        return KeyringPlace{*uri, serviceInfo->modelName().value_or(*uri)};
    };
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
    const auto item = serviceInfo ? findInKeyring(placeOf(serviceInfo)) : std::nullopt;
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
    return serviceInfo && storeInKeyring(placeOf(serviceInfo), username_, dmf::Secret(password_.view()));
}
