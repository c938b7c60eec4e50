#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <vector>

#include <dmf/ADMAuthenticationInfo.h>
#include <dmf/platform/Export.h>
#include <dmf/platform/Protocol.h>

/// The credentials for one service, at most one of each kind. Thread-safe.
class DMF_EXPORT IDMAuthenticationContext {
public:
    using AuthenticationInfos = std::map<std::int32_t, std::shared_ptr<ADMAuthenticationInfo>>;

    [[nodiscard]] static const dmf::Protocol& protocol();
    virtual ~IDMAuthenticationContext();

    /// Keeps the credential in place of an earlier one of its kind; an empty pointer changes nothing.
    virtual void addAuthenticationInfo(std::shared_ptr<ADMAuthenticationInfo> authenticationInfo) = 0;
    /// The credential of the kind, or empty. Does not look into the keyring.
    [[nodiscard]] virtual std::shared_ptr<ADMAuthenticationInfo> authenticationInfoWithType(std::int32_t type) = 0;
    /// The same; when there is none and `searchKeychain` is set, it is restored from the keyring first. Then it may
    /// block as `restoreAuthenticationInfoWithType` does.
    [[nodiscard]] virtual std::shared_ptr<ADMAuthenticationInfo> authenticationInfoWithType(std::int32_t type,
                                                                                            bool searchKeychain) = 0;
    /// Adds what the keyring holds for the service, if anything. Only user name and password are kept there: other
    /// kinds are passed over at once. Blocks for up to 2 seconds; nobody else waits meanwhile.
    virtual void restoreAuthenticationInfoWithType(std::int32_t type) = 0;

    /// All credentials, by kind; copies of the list, not of the credentials.
    [[nodiscard]] virtual AuthenticationInfos authenticationInfos() const = 0;
    [[nodiscard]] virtual std::vector<std::shared_ptr<ADMAuthenticationInfo>> allAuthenticationInfos() const = 0;
    virtual void removeAuthenticationInfoWithType(std::int32_t type) = 0;
    virtual void removeAllAuthenticationInfos() = 0;
    /// Takes over the other context's credentials in place of all of its own; an empty pointer changes nothing.
    virtual void setAuthenticationContext(const std::shared_ptr<const IDMAuthenticationContext>& other) = 0;
};
