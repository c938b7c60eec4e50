#pragma once

#include <atomic>
#include <cstdint>
#include <deque>
#include <map>
#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include <dmf/ADMServiceDiscoveryBase.h>
#include <dmf/platform/RunLoop.h>
#include <dmf/platform/Value.h>

#include "DaemonLink.h"
#include "ServiceName.h"
#include "TxtRecord.h"

namespace dmf::dnssd {

/// One run of a service discovery: browses for some service types and reports to the discovery. It lives on the
/// discovery thread, under its lock; `begin`, `end` and `trouble` may be called on any thread. It keeps that thread
/// running until its last message has been served.
///
/// While bus or daemon are missing it goes on by itself: the bus is tried again at growing intervals, the daemon tells
/// when it comes. What was found stays so meanwhile; what is not there any more once everything has been browsed anew
/// is reported as lost then.
class Browse : public std::enable_shared_from_this<Browse> {
public:
    enum TroubleCode : std::int32_t { noBus = 1, noDaemon = 2, daemonFails = 3 };

    /// `types` as "_ipp._tcp"; finds are of the device class given.
    Browse(std::weak_ptr<ADMServiceDiscoveryBase> discovery, std::vector<std::string> types, std::string deviceClass);
    Browse(const Browse&) = delete;
    Browse& operator=(const Browse&) = delete;

    /// False when the discovery thread is not there.
    [[nodiscard]] bool begin();
    /// Nothing is reported any more, save what is under way on the discovery thread. Never waits.
    void end();
    /// What is in the way just now (kDMErrorDescription, kDMErrorCode); empty while it works. Asks the daemon for a
    /// sign of life meanwhile, for the sake of whoever looks next: one that hangs says nothing, and is not asked for
    /// nothing.
    [[nodiscard]] Dictionary trouble();

private:
    /// Where a service was seen: interface and address family, as the daemon numbers them.
    using Place = std::pair<std::int32_t, std::int32_t>;
    struct Service {
        enum class State {
            asked,    ///< its TXT record is waited for
            reported, ///< found
            unwanted, ///< its vendor is not accepted, or no URI can name it
        };
        ServiceName name;
        std::set<Place> seenAt;
        State state = State::asked;
        unsigned attempts = 0;
        std::shared_ptr<ADMServiceInfo> info; ///< of a reported one
    };

    void connect();
    void disconnect();
    void retryLater();
    [[nodiscard]] std::shared_ptr<RunLoopTimer> timerAfter(double seconds, void (Browse::*work)());
    void after(double seconds, void (Browse::*work)());
    void stopTimer();
    void busIsLate();
    void daemonIsLate();
    void setTrouble(Dictionary trouble);
    void askForSignOfLife();
    void forgetSignOfLife();

    void startBrowsers();
    void receive(const std::string& type, std::string_view signal, GVariant* arguments);
    void seen(Place place, ServiceName name);
    void unseen(Place place, const ServiceName& name);
    void browsedAll();
    void reportVanished();
    void forgetPlaces();

    void askNext();
    void ask(const std::string& key, Service& service);
    void answered(const std::string& key, GVariant* answer);
    void settle(Service& service, const Identity& identity);
    void report(std::shared_ptr<ADMServiceInfo> service, bool isLost);

    const std::weak_ptr<ADMServiceDiscoveryBase> discovery_;
    const std::vector<std::string> types_;
    const std::string deviceClass_;
    std::atomic<bool> isEnded_{false};
    std::atomic<bool> isSignOfLifeWanted_{false}; ///< it is being asked for
    std::mutex troubleLock_;
    Dictionary trouble_; // guarded by troubleLock_

    // On the discovery thread, under its lock.
    std::shared_ptr<void> thread_;
    std::shared_ptr<DaemonLink> link_;
    std::shared_ptr<RunLoopTimer> timer_; ///< until a retry, or the limit of connecting or of an answer
    std::shared_ptr<RunLoopTimer> signOfLifeTimer_;
    double retryDelay_;
    std::size_t browsersMade_ = 0;
    std::size_t typesBrowsed_ = 0;
    std::map<std::string, Service> services_; // by ServiceName::key
    std::deque<std::string> toAsk_;           // keys; some may have gone
    int beingAsked_ = 0;
};

} // namespace dmf::dnssd
