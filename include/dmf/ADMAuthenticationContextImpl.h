#pragma once

#include <memory>
#include <mutex>

#include <dmf/IDMAuthenticationContext.h>

class ADMServiceInfo;

/// The library's authentication context. Thread-safe.
class DMF_EXPORT ADMAuthenticationContextImpl final : public IDMAuthenticationContext {
public:
    /// An empty context for the service, which it holds. Without a service nothing is ever restored.
    explicit ADMAuthenticationContextImpl(std::shared_ptr<ADMServiceInfo> serviceInfo);
    ~ADMAuthenticationContextImpl() override;
    ADMAuthenticationContextImpl(const ADMAuthenticationContextImpl&) = delete;
    ADMAuthenticationContextImpl& operator=(const ADMAuthenticationContextImpl&) = delete;

    void addAuthenticationInfo(std::shared_ptr<ADMAuthenticationInfo> authenticationInfo) override;
    [[nodiscard]] std::shared_ptr<ADMAuthenticationInfo> authenticationInfoWithType(std::int32_t type) override;
    [[nodiscard]] std::shared_ptr<ADMAuthenticationInfo> authenticationInfoWithType(std::int32_t type,
                                                                                    bool searchKeychain) override;
    void restoreAuthenticationInfoWithType(std::int32_t type) override;
    [[nodiscard]] AuthenticationInfos authenticationInfos() const override;
    [[nodiscard]] std::vector<std::shared_ptr<ADMAuthenticationInfo>> allAuthenticationInfos() const override;
    void removeAuthenticationInfoWithType(std::int32_t type) override;
    void removeAllAuthenticationInfos() override;
    void setAuthenticationContext(const std::shared_ptr<const IDMAuthenticationContext>& other) override;

private:
    const std::shared_ptr<ADMServiceInfo> serviceInfo_;
    mutable std::recursive_mutex lock_;
    AuthenticationInfos authenticationInfos_; // guarded by lock_
};
