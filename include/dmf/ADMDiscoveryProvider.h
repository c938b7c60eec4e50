#pragma once

#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <span>
#include <string>
#include <string_view>

#include <dmf/platform/Export.h>
#include <dmf/platform/Value.h>

class ADMServiceDiscoveryBase;

/// Does the work of one discovery protocol: its sockets, timers and callbacks live on the discovery thread's run loop
/// (ADMServiceDiscoveryBase::runloop), which a provider keeps running for its whole life. What is handed over by
/// `performAction` runs under the thread's lock; a provider's own timers and sources take it in their callbacks, and
/// other threads take it when they touch the provider's state.
///
/// A provider belongs to its service discovery, which it does not keep alive: a callback that finds it gone has nothing
/// to report to.
class DMF_EXPORT ADMDiscoveryProvider {
public:
    using Status = std::uint32_t;
    static constexpr Status kUnsupportedParameter = 6;
    static constexpr Status kMissingArgument = 4;

    /// Throws std::invalid_argument without a parent, and std::runtime_error when the discovery thread cannot be
    /// started; a class whose factory makes one gives an empty result then.
    explicit ADMDiscoveryProvider(const std::shared_ptr<ADMServiceDiscoveryBase>& parent);
    /// Lets the discovery thread go, which ends with its last provider.
    virtual ~ADMDiscoveryProvider();
    ADMDiscoveryProvider(const ADMDiscoveryProvider&) = delete;
    ADMDiscoveryProvider& operator=(const ADMDiscoveryProvider&) = delete;

    /// Begins to look for services of that name. 0 for success; other values belong to the provider. `scope` is the
    /// provider's own matter; nothing when nobody gives one. Each base operation throws dmf::UnrecognizedOperation.
    [[nodiscard]] virtual Status startDiscovery(std::string_view serviceName, std::optional<std::string_view> scope);
    /// Ends it; never blocks for longer than the callback that is under way on the discovery thread.
    virtual Status stopDiscovery();

    /// Keeps what is being discovered. 0 for success, 1 without a service. The scope is not kept.
    Status initDiscovery(dmf::Value service, std::optional<std::string_view> scope);
    void resetDiscovery();
    /// What is being discovered; a null value when nothing is.
    [[nodiscard]] dmf::Value service() const;

    /// Settings of a provider by name; this base has none: kMissingArgument without a name (or a value, when setting)
    /// or with the length 0, kUnsupportedParameter otherwise.
    virtual Status parameter(std::optional<std::string_view> name, std::span<std::uint8_t> value);
    virtual Status setParameter(std::optional<std::string_view> name, std::span<const std::uint8_t> value);

    /// The parent's parameters.
    [[nodiscard]] dmf::Dictionary parameters() const;
    /// The service discovery that owns this; empty once it goes.
    [[nodiscard]] std::shared_ptr<ADMServiceDiscoveryBase> parent() const noexcept { return parent_.lock(); }

private:
    const std::weak_ptr<ADMServiceDiscoveryBase> parent_;
    mutable std::mutex serviceLock_;
    dmf::Value service_; // guarded by serviceLock_
};
