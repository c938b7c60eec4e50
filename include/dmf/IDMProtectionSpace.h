#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include <dmf/platform/Export.h>
#include <dmf/platform/Protocol.h>

/// What a credential is wanted for. It travels under the key kDMProtectionSpaceKey with a request for credentials.
/// Reentrant.
class DMF_EXPORT IDMProtectionSpace {
public:
    [[nodiscard]] static const dmf::Protocol& protocol();
    virtual ~IDMProtectionSpace();

    /// The kind of credential, one of those of ADMAuthenticationInfo.
    [[nodiscard]] virtual std::int32_t authenticationType() const = 0;
    /// What the device calls the protected area, for people.
    [[nodiscard]] virtual std::optional<std::string> realm() const = 0;
    virtual void setRealm(std::optional<std::string> realm) = 0;
};
