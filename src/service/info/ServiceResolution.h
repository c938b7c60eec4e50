#pragma once

#include <condition_variable>
#include <memory>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include <dmf/ADMServiceInfo.h>
#include <dmf/ADMServiceResolver.h>

namespace dmf::internal {

class ServiceDevice;
class ServiceProperties;

/// The resolution of a service: where it is scheduled, whom it tells, and one start at a time. Thread-safe.
///
///     idle ──start──► announcing ──resolver started──► resolving ──outcome──► idle (the delegate is told once)
///      ▲                  ├──no resolver──► idle (told why)  │
///      └──── stop ────────┴──────────────────────────────────┘ (nobody is told)
///
/// An outcome is taken over in the same locked step that finds its start still under way. It does not keep the service:
/// who releases a service ends its resolution. No lock is held while a resolver or the delegate is called, and what
/// those throw is logged; a resolver that throws has failed.
class ServiceResolution final : public std::enable_shared_from_this<ServiceResolution> {
public:
    ServiceResolution(std::shared_ptr<ServiceProperties> properties, std::shared_ptr<ServiceDevice> device);
    ~ServiceResolution();
    ServiceResolution(const ServiceResolution&) = delete;
    ServiceResolution& operator=(const ServiceResolution&) = delete;

    [[nodiscard]] std::shared_ptr<ADMServiceInfoDelegate> delegate() const;
    void setDelegate(const std::shared_ptr<ADMServiceInfoDelegate>& delegate);
    void schedule(std::shared_ptr<RunLoop> runLoop, std::optional<std::string_view> mode);
    void unschedule(const std::shared_ptr<RunLoop>& runLoop, std::string_view mode);

    /// Does nothing while a resolution is under way that somebody can be told of. The delegate hears of `service`; the
    /// resolver gets and keeps `standIn`, which must not keep the service.
    void start(const std::shared_ptr<ADMServiceInfo>& service, const std::shared_ptr<ADMServiceInfo>& standIn,
               const Dictionary& parameters, double timeout);
    /// The outcome of that resolver, if it is the one that resolves just now.
    void resolverDidFinish(const ADMServiceResolver& resolver);
    /// From its return on nobody is told of the start that it ended. For that it waits, a second at most, while another
    /// thread calls the delegate.
    void stop();

private:
    /// One start; without one the resolution is idle.
    struct Attempt {
        std::weak_ptr<ADMServiceInfo> service;
        std::shared_ptr<ADMServiceResolver> resolver;         // null while announcing
        std::shared_ptr<ADMServiceResolverDelegate> listener; // what the resolver calls
        std::weak_ptr<RunLoop> runLoop;                       // where it tells
        /// Whether nobody can be told of it any more, since the thread of its run loop has ended.
        [[nodiscard]] bool isForsaken() const;
    };
    struct Outcome {
        Dictionary error;
        Dictionary info;
        std::shared_ptr<IDMDevice> device;
        [[nodiscard]] bool isSuccess() const;
    };

    [[nodiscard]] static Outcome outcomeOf(const ADMServiceResolver& resolver);
    static void giveUp(ADMServiceResolver& resolver);
    void run(const std::shared_ptr<Attempt>& attempt, const std::shared_ptr<ADMServiceInfo>& standIn,
             const Dictionary& parameters, double timeout);
    void finish(const std::shared_ptr<Attempt>& attempt, Outcome outcome);
    void tell(ADMServiceInfo& service, const ADMServiceInfoDelegate& delegate, const Outcome& outcome);
    [[nodiscard]] bool isUnderWay(const std::shared_ptr<Attempt>& attempt) const;
    [[nodiscard]] bool isToldElsewhere() const;

    const std::shared_ptr<ServiceProperties> properties_;
    const std::shared_ptr<ServiceDevice> device_;

    // Guards all below; those of properties and device are taken after it.
    mutable std::recursive_mutex lock_;
    std::condition_variable_any told_;
    std::weak_ptr<ADMServiceInfoDelegate> delegate_;
    std::weak_ptr<RunLoop> runLoop_;
    std::set<std::string, std::less<>> modes_;
    /// Never signalled: it gives the modes something to wait for while a resolution is pending. Made when it is needed.
    std::shared_ptr<RunLoopSource> stubPort_;
    std::shared_ptr<Attempt> attempt_;
    std::vector<std::shared_ptr<Attempt>> taken_; // outcomes that are about to be told; a stop takes them away
    std::vector<std::thread::id> telling_;        // who calls the delegate with an outcome just now
};

} // namespace dmf::internal
