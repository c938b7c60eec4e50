#pragma once

#include <atomic>
#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <string>

#include <dmf/ADMServiceDiscoveryBase.h>

#include "watch/Watch.h"

class ADMServiceInfoImp;

namespace dmf::usb {

/// One run of a service discovery: reports which devices serve a channel. It lives on the discovery thread, under its
/// lock; `begin`, `end` and `trouble` may be called on any thread.
///
///     made ──begin──► running ──end──► ended (nothing is reported any more; the thread is let go on the thread itself)
class Run : public std::enable_shared_from_this<Run> {
public:
    Run(std::weak_ptr<ADMServiceDiscoveryBase> discovery, std::string channel);
    Run(const Run&) = delete;
    Run& operator=(const Run&) = delete;

    /// False when there can be no threads.
    [[nodiscard]] bool begin();
    void end();
    [[nodiscard]] Dictionary trouble() const;

private:
    struct Report {
        std::shared_ptr<ADMServiceInfoImp> service;
        std::shared_ptr<const Sighting> sighting; ///< what the service was last described by
    };

    void viewChanged();
    void update();
    [[nodiscard]] bool serves(const Sighting& sighting) const;
    void find(const std::shared_ptr<const Sighting>& sighting);
    void announce(const std::shared_ptr<ADMServiceInfoImp>& service, bool isLost);

    const std::weak_ptr<ADMServiceDiscoveryBase> discovery_;
    const std::string channel_;
    std::atomic<bool> isEnded_{false};
    std::atomic<bool> isUpdateUnderWay_{false};

    mutable std::mutex lock_; // guards the watch's handle, which any thread may ask
    std::shared_ptr<Watch> watch_;

    // On the discovery thread, under its lock.
    std::shared_ptr<void> thread_;
    std::shared_ptr<void> listening_;
    std::map<std::uint64_t, Report> reports_; // by the sighting's number
};

/// What a service info says of the device beside its URI.
void describe(ADMServiceInfoImp& service, const Sighting& sighting);

} // namespace dmf::usb
