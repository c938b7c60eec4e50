#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string_view>

#include <dmf/platform/Export.h>
#include <dmf/platform/Value.h>

class ADMServiceInfo;
class ADMUsernameAndPasswordAuthenticationInfo;
class ADMWEPAuthenticationInfo;
class ADMWPAAuthenticationInfo;

/// The part of a credential that keeps it in the user's keyring. Nothing is logged and no error is told: what the
/// keyring refuses is false, or empty. Reentrant.
class DMF_EXPORT ADMStorableAuthenticationInfo {
public:
    virtual ~ADMStorableAuthenticationInfo();

    /// The credential that the keyring holds for the service. Each kind has its own; this one throws
    /// dmf::UnrecognizedOperation.
    [[nodiscard]] static std::shared_ptr<ADMStorableAuthenticationInfo>
    initFromKeychainForServiceInfo(const std::shared_ptr<ADMServiceInfo>& serviceInfo);

    /// Keeps the credential for the service; false when it was not kept. To be overridden: this one throws
    /// dmf::UnrecognizedOperation.
    [[nodiscard]] virtual bool storeInKeychainForServiceInfo(const std::shared_ptr<ADMServiceInfo>& serviceInfo) const;

protected:
    ADMStorableAuthenticationInfo() = default;
    ADMStorableAuthenticationInfo(const ADMStorableAuthenticationInfo&) = default;
    ADMStorableAuthenticationInfo& operator=(const ADMStorableAuthenticationInfo&) = default;
};

/// A credential of one kind. The library's three kinds never change once made, so they are thread-safe; their secrets
/// are wiped when the object goes, and appear in no description, log or error.
class DMF_EXPORT ADMAuthenticationInfo : public ADMStorableAuthenticationInfo {
public:
    /// The kinds of credentials.
    static constexpr std::int32_t kWEPKeys = 1;
    static constexpr std::int32_t kWPAPassPhrase = 2;
    static constexpr std::int32_t kUsernameAndPassword = 3;

    /// Each gives an empty pointer when a value is missing.
    [[nodiscard]] static std::shared_ptr<ADMUsernameAndPasswordAuthenticationInfo>
    authenticationInfoWithUsername(std::optional<std::string_view> username, std::optional<std::string_view> password,
                                   std::int32_t persistence);
    [[nodiscard]] static std::shared_ptr<ADMWPAAuthenticationInfo>
    authenticationInfoWithWPAPassPhrase(std::optional<std::string_view> passPhrase);
    [[nodiscard]] static std::shared_ptr<ADMWEPAuthenticationInfo>
    authenticationInfoWithWEPKeys(const dmf::Value& WEPKeys);

    /// Of which kind this is. To be overridden: this one throws dmf::UnrecognizedOperation.
    [[nodiscard]] virtual std::int32_t authenticationType() const;

protected:
    ADMAuthenticationInfo() = default;
};
