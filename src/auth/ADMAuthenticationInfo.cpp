#include <dmf/ADMAuthenticationInfo.h>

#include <dmf/ADMUsernameAndPasswordAuthenticationInfo.h>
#include <dmf/ADMWEPAuthenticationInfo.h>
#include <dmf/ADMWPAAuthenticationInfo.h>
#include <dmf/platform/Error.h>

ADMStorableAuthenticationInfo::~ADMStorableAuthenticationInfo() = default;

std::shared_ptr<ADMStorableAuthenticationInfo>
ADMStorableAuthenticationInfo::initFromKeychainForServiceInfo(const std::shared_ptr<ADMServiceInfo>&)
{
    throw dmf::UnrecognizedOperation("ADMAuthenticationInfo", "initFromKeychainForServiceInfo:");
}

bool ADMStorableAuthenticationInfo::storeInKeychainForServiceInfo(const std::shared_ptr<ADMServiceInfo>&) const
{
    throw dmf::UnrecognizedOperation("ADMAuthenticationInfo", "storeInKeychainForServiceInfo:");
}

std::shared_ptr<ADMUsernameAndPasswordAuthenticationInfo> ADMAuthenticationInfo::authenticationInfoWithUsername(
    std::optional<std::string_view> username, std::optional<std::string_view> password, std::int32_t persistence)
{
    return ADMUsernameAndPasswordAuthenticationInfo::initWithUsername(username, password, persistence);
}

std::shared_ptr<ADMWPAAuthenticationInfo>
ADMAuthenticationInfo::authenticationInfoWithWPAPassPhrase(std::optional<std::string_view> passPhrase)
{
    return ADMWPAAuthenticationInfo::initWithPassPhrase(passPhrase);
}

std::shared_ptr<ADMWEPAuthenticationInfo>
ADMAuthenticationInfo::authenticationInfoWithWEPKeys(const dmf::Value& WEPKeys)
{
    return ADMWEPAuthenticationInfo::initWithWEPKeys(WEPKeys);
}

std::int32_t ADMAuthenticationInfo::authenticationType() const
{
    throw dmf::UnrecognizedOperation("ADMAuthenticationInfo", "authenticationType");
}
