#pragma once

#include <cstdint>
#include <memory>

#include <dmf/ADMAuthenticationInfo.h>
#include <dmf/platform/Export.h>
#include <dmf/platform/Protocol.h>
#include <dmf/platform/Value.h>

/// The keys of a wireless network. Thread-safe.
class DMF_EXPORT IDMWEPAuthenticationInfo {
public:
    [[nodiscard]] static const dmf::Protocol& protocol();
    virtual ~IDMWEPAuthenticationInfo();

    /// As they were given, usually an array of strings; a copy that shares no memory with the object, so that wiping it
    /// is the caller's affair.
    [[nodiscard]] virtual dmf::Value WEPKeys() const = 0;
};

/// The keys that a device is to be configured with. Not kept in the keyring.
class DMF_EXPORT ADMWEPAuthenticationInfo final : public ADMAuthenticationInfo, public IDMWEPAuthenticationInfo {
    struct Passkey {
        explicit Passkey() = default;
    };

public:
    /// Keys of any kind and length go: the device judges them. Empty for a null value. The strings and bytes in the
    /// value are copied, in arrays and dictionaries too, and the object's own copies wiped when it goes; a shared
    /// object of the program in there is kept as it is.
    [[nodiscard]] static std::shared_ptr<ADMWEPAuthenticationInfo> initWithWEPKeys(const dmf::Value& WEPKeys);
    /// Always empty.
    [[nodiscard]] static std::shared_ptr<ADMWEPAuthenticationInfo>
    initFromKeychainForServiceInfo(const std::shared_ptr<ADMServiceInfo>& serviceInfo);

    ADMWEPAuthenticationInfo(Passkey, const dmf::Value& WEPKeys);
    ~ADMWEPAuthenticationInfo() override;
    ADMWEPAuthenticationInfo(const ADMWEPAuthenticationInfo&) = delete;
    ADMWEPAuthenticationInfo& operator=(const ADMWEPAuthenticationInfo&) = delete;

    [[nodiscard]] std::int32_t authenticationType() const override { return kWEPKeys; }
    [[nodiscard]] dmf::Value WEPKeys() const override;
    /// Always false.
    [[nodiscard]] bool storeInKeychainForServiceInfo(const std::shared_ptr<ADMServiceInfo>& serviceInfo) const override;

private:
    dmf::Value WEPKeys_; // shares its storage with nobody
};
