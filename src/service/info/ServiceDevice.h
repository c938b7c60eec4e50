#pragma once

#include <condition_variable>
#include <memory>
#include <mutex>

#include <dmf/platform/Value.h>

class ADMIOProvider;
class IDMDevice;
class IDMDeviceHandler;

namespace dmf::internal {

/// The device of a service, and the search for it. Thread-safe.
///
///     none ──device──► searching ──found──► kept
///      ▲                   └──nothing found──► none
///      └── setDevice, in every state: kept or none; what a search under way finds is then kept no more ──► kept
///
/// No lock is held during a search, so only who asks for the device waits for it. Transports are other people's code:
/// what they throw is logged and counts as a failure.
class ServiceDevice {
public:
    /// What supplies the service's classes in place of the plug-in manager; before anybody else knows the object.
    void setProvider(std::shared_ptr<ADMIOProvider> provider) { provider_ = std::move(provider); }
    [[nodiscard]] const std::shared_ptr<ADMIOProvider>& provider() const noexcept { return provider_; }

    /// The kept device, or null.
    [[nodiscard]] std::shared_ptr<IDMDevice> kept() const;
    /// Keeps the device, which may be null, and gives the one before. Never waits.
    std::shared_ptr<IDMDevice> exchange(std::shared_ptr<IDMDevice> device);
    /// The kept device, else what a search by the description finds: its own, or one that is under way on another
    /// thread. Null when that finds nothing. Blocks for as long as the transport looks for the device.
    [[nodiscard]] std::shared_ptr<IDMDevice> device(const Dictionary& spec);
    /// Makes the device for the description without keeping it; null when there is no class or it makes none. Blocks
    /// likewise; ends early when the handler, which may be null, cancels.
    [[nodiscard]] std::shared_ptr<IDMDevice> locate(const std::shared_ptr<IDMDeviceHandler>& handler,
                                                    const Dictionary& spec) const;
    /// Whether the device answers now; looks for it when none is kept.
    [[nodiscard]] bool isReachable(const Dictionary& spec);
    /// What the device says of itself.
    [[nodiscard]] static Dictionary parametersOf(IDMDevice& device);

private:
    struct Search;

    std::shared_ptr<ADMIOProvider> provider_;

    mutable std::mutex lock_;
    std::condition_variable searched_;
    std::shared_ptr<IDMDevice> kept_; // both guarded by lock_
    std::shared_ptr<Search> search_;  // the one whose find is to be kept
};

} // namespace dmf::internal
