#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include <dmf/ADMAuthenticationInfo.h>
#include <dmf/platform/Export.h>
#include <dmf/platform/Protocol.h>
#include <dmf/platform/Secret.h>

/// A user name and the password that belongs to it. Thread-safe.
class DMF_EXPORT IDMUsernameAndPasswordAuthenticationInfo {
public:
    [[nodiscard]] static const dmf::Protocol& protocol();
    virtual ~IDMUsernameAndPasswordAuthenticationInfo();

    [[nodiscard]] virtual std::string username() const = 0;
    /// Looks into the object's own memory and is valid for as long as the object lives; whoever copies the password
    /// wipes the copy.
    [[nodiscard]] virtual std::string_view password() const = 0;
};

/// The credential for a device's web interface, the one kind that the keyring keeps.
class DMF_EXPORT ADMUsernameAndPasswordAuthenticationInfo final : public ADMAuthenticationInfo,
                                                                  public IDMUsernameAndPasswordAuthenticationInfo {
    struct Passkey {
        explicit Passkey() = default;
    };

public:
    /// `persistence` is kept for the caller, who alone knows what it means. Empty when the name or the password is
    /// missing; either may be an empty text.
    [[nodiscard]] static std::shared_ptr<ADMUsernameAndPasswordAuthenticationInfo>
    initWithUsername(std::optional<std::string_view> username, std::optional<std::string_view> password,
                     std::int32_t persistence);

    /// The credential that the user's keyring holds for the service, found by its URI and its model name (failing that
    /// by the URI once more); persistence is 0. Empty when the service has no URI and when nothing could be read: there
    /// is none, the keyring is locked, or nobody answers. Never asks the user; blocks for up to 2 seconds. A service
    /// that does not know its model yet asks its device, on a thread of the library: that counts, and goes on behind
    /// this call when it takes longer.
    [[nodiscard]] static std::shared_ptr<ADMUsernameAndPasswordAuthenticationInfo>
    initFromKeychainForServiceInfo(const std::shared_ptr<ADMServiceInfo>& serviceInfo);

    ADMUsernameAndPasswordAuthenticationInfo(Passkey, std::string_view username, std::string_view password,
                                             std::int32_t persistence);
    ~ADMUsernameAndPasswordAuthenticationInfo() override;
    ADMUsernameAndPasswordAuthenticationInfo(const ADMUsernameAndPasswordAuthenticationInfo&) = delete;
    ADMUsernameAndPasswordAuthenticationInfo& operator=(const ADMUsernameAndPasswordAuthenticationInfo&) = delete;

    [[nodiscard]] std::int32_t authenticationType() const override { return kUsernameAndPassword; }
    [[nodiscard]] std::string username() const override { return username_; }
    [[nodiscard]] std::string_view password() const override { return password_.view(); }
    [[nodiscard]] std::int32_t persistence() const noexcept { return persistence_; }

    /// Puts the credential into the user's default keyring. False when the service has no URI, when the keyring holds
    /// an item for the same service and user already, and when the keyring is missing, stays locked or does not answer.
    /// Blocks for up to 2 seconds, or for up to 30 where the user is asked to unlock the keyring; the device is asked
    /// for its model within them, as above.
    [[nodiscard]] bool storeInKeychainForServiceInfo(const std::shared_ptr<ADMServiceInfo>& serviceInfo) const override;

private:
    const std::string username_;
    const dmf::Secret password_;
    const std::int32_t persistence_;
};
