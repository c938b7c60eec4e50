#include <dmf/ADMWPAAuthenticationInfo.h>

std::shared_ptr<ADMWPAAuthenticationInfo>
ADMWPAAuthenticationInfo::initWithPassPhrase(std::optional<std::string_view> passPhrase)
{
    return passPhrase ? std::make_shared<ADMWPAAuthenticationInfo>(Passkey(), *passPhrase) : nullptr;
}

std::shared_ptr<ADMWPAAuthenticationInfo>
ADMWPAAuthenticationInfo::initFromKeychainForServiceInfo(const std::shared_ptr<ADMServiceInfo>&)
{
    return nullptr;
}

ADMWPAAuthenticationInfo::ADMWPAAuthenticationInfo(Passkey, std::string_view passPhrase) : passPhrase_(passPhrase) {}

ADMWPAAuthenticationInfo::~ADMWPAAuthenticationInfo() = default;

bool ADMWPAAuthenticationInfo::storeInKeychainForServiceInfo(const std::shared_ptr<ADMServiceInfo>&) const
{
    return false;
}
