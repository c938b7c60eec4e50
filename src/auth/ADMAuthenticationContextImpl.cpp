#include <dmf/ADMAuthenticationContextImpl.h>

#include <dmf/ADMServiceInfo.h>
#include <dmf/ADMUsernameAndPasswordAuthenticationInfo.h>

#include <utility>

ADMAuthenticationContextImpl::ADMAuthenticationContextImpl(std::shared_ptr<ADMServiceInfo> serviceInfo)
    : serviceInfo_(std::move(serviceInfo))
{
}

ADMAuthenticationContextImpl::~ADMAuthenticationContextImpl() = default;

void ADMAuthenticationContextImpl::addAuthenticationInfo(std::shared_ptr<ADMAuthenticationInfo> authenticationInfo)
{
    if (!authenticationInfo)
        return;
    // Asked before the lock is taken: a kind of the program's own may do as it likes.
    const auto type = authenticationInfo->authenticationType();
    std::lock_guard guard(lock_);
    authenticationInfos_[type].swap(authenticationInfo); // the earlier one goes when the lock is free again
}

std::shared_ptr<ADMAuthenticationInfo> ADMAuthenticationContextImpl::authenticationInfoWithType(std::int32_t type)
{
    std::lock_guard guard(lock_);
    const auto entry = authenticationInfos_.find(type);
    return entry == authenticationInfos_.end() ? nullptr : entry->second;
}

std::shared_ptr<ADMAuthenticationInfo> ADMAuthenticationContextImpl::authenticationInfoWithType(std::int32_t type,
                                                                                                bool searchKeychain)
{
    auto stored = authenticationInfoWithType(type);
    if (stored || !searchKeychain)
        return stored;
    restoreAuthenticationInfoWithType(type);
    return authenticationInfoWithType(type);
}

/// The keyring may take its time, and the service may ask its device for the model: never under the lock.
void ADMAuthenticationContextImpl::restoreAuthenticationInfoWithType(std::int32_t type)
{
    if (type == ADMAuthenticationInfo::kUsernameAndPassword)
        addAuthenticationInfo(ADMUsernameAndPasswordAuthenticationInfo::initFromKeychainForServiceInfo(serviceInfo_));
}

IDMAuthenticationContext::AuthenticationInfos ADMAuthenticationContextImpl::authenticationInfos() const
{
    std::lock_guard guard(lock_);
    return authenticationInfos_;
}

std::vector<std::shared_ptr<ADMAuthenticationInfo>> ADMAuthenticationContextImpl::allAuthenticationInfos() const
{
    std::vector<std::shared_ptr<ADMAuthenticationInfo>> all;
    for (auto& [type, authenticationInfo] : authenticationInfos())
        all.push_back(std::move(authenticationInfo));
    return all;
}

void ADMAuthenticationContextImpl::removeAuthenticationInfoWithType(std::int32_t type)
{
    std::shared_ptr<ADMAuthenticationInfo> removed; // goes when the lock is free again
    std::lock_guard guard(lock_);
    if (auto node = authenticationInfos_.extract(type))
        removed = std::move(node.mapped());
}

void ADMAuthenticationContextImpl::removeAllAuthenticationInfos()
{
    AuthenticationInfos removed;
    std::lock_guard guard(lock_);
    removed.swap(authenticationInfos_);
}

/// One lock after the other: two contexts may take over from each other at the same time.
void ADMAuthenticationContextImpl::setAuthenticationContext(
    const std::shared_ptr<const IDMAuthenticationContext>& other)
{
    if (!other)
        return;
    auto entries = other->authenticationInfos();
    std::lock_guard guard(lock_);
    authenticationInfos_.swap(entries);
}
