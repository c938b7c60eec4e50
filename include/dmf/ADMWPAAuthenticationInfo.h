#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string_view>

#include <dmf/ADMAuthenticationInfo.h>
#include <dmf/platform/Export.h>
#include <dmf/platform/Protocol.h>
#include <dmf/platform/Secret.h>

/// The pass phrase of a wireless network. Thread-safe.
class DMF_EXPORT IDMWPAAuthenticationInfo {
public:
    [[nodiscard]] static const dmf::Protocol& protocol();
    virtual ~IDMWPAAuthenticationInfo();

    /// Looks into the object's own memory and is valid for as long as the object lives; whoever copies it wipes the
    /// copy.
    [[nodiscard]] virtual std::string_view passPhrase() const = 0;
};

/// The pass phrase that a device is to be configured with. Not kept in the keyring.
class DMF_EXPORT ADMWPAAuthenticationInfo final : public ADMAuthenticationInfo, public IDMWPAAuthenticationInfo {
    struct Passkey {
        explicit Passkey() = default;
    };

public:
    /// Any length goes: the device judges it. Empty when the pass phrase is missing.
    [[nodiscard]] static std::shared_ptr<ADMWPAAuthenticationInfo>
    initWithPassPhrase(std::optional<std::string_view> passPhrase);
    /// Always empty.
    [[nodiscard]] static std::shared_ptr<ADMWPAAuthenticationInfo>
    initFromKeychainForServiceInfo(const std::shared_ptr<ADMServiceInfo>& serviceInfo);

    ADMWPAAuthenticationInfo(Passkey, std::string_view passPhrase);
    ~ADMWPAAuthenticationInfo() override;
    ADMWPAAuthenticationInfo(const ADMWPAAuthenticationInfo&) = delete;
    ADMWPAAuthenticationInfo& operator=(const ADMWPAAuthenticationInfo&) = delete;

    [[nodiscard]] std::int32_t authenticationType() const override { return kWPAPassPhrase; }
    [[nodiscard]] std::string_view passPhrase() const override { return passPhrase_.view(); }
    /// Always false.
    [[nodiscard]] bool storeInKeychainForServiceInfo(const std::shared_ptr<ADMServiceInfo>& serviceInfo) const override;

private:
    const dmf::Secret passPhrase_;
};
