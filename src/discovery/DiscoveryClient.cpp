#include "discovery/DiscoveryClient.h"

#include <dmf/DMLog.h>
#include <dmf/platform/Format.h>

#include <utility>

namespace dmf::internal {

namespace {
using Change = DiscoverySource::Change;

/// What a log line says, found out only when the line is written.
struct DescribedDiscovery {
    const std::weak_ptr<ADMDiscovery>& discovery;
    [[nodiscard]] std::string description() const { return formatted("<ADMBaseDiscovery %p>", discovery.lock()); }
};
struct DescribedService {
    const std::shared_ptr<ADMServiceInfo>& service;
    [[nodiscard]] std::string description() const { return formatted("<ADMServiceInfo %p>", service); }
};
struct DescribedURI {
    const std::shared_ptr<ADMServiceInfo>& service;
    [[nodiscard]] std::string description() const { return service->uri().value_or("(null)"); }
};
} // namespace

DiscoveryClient::DiscoveryClient() = default;

DiscoveryClient::~DiscoveryClient()
{
    stubPort_->invalidate();
}

void DiscoveryClient::retire()
{
    close();
    schedule(nullptr, {});
    setDelegate(nullptr);
    std::shared_ptr<ADMDiscoveryFilter> none;
    (void)swapFilter(none);
}

std::shared_ptr<ADMDiscoveryDelegate> DiscoveryClient::delegate() const
{
    std::lock_guard guard(lock_);
    return delegate_.lock();
}

void DiscoveryClient::setDelegate(const std::shared_ptr<ADMDiscoveryDelegate>& delegate)
{
    std::lock_guard guard(lock_);
    delegate_ = delegate;
}

std::shared_ptr<ADMDiscoveryFilter> DiscoveryClient::filter() const
{
    std::lock_guard guard(lock_);
    return filter_;
}

bool DiscoveryClient::swapFilter(std::shared_ptr<ADMDiscoveryFilter>& filter)
{
    std::lock_guard guard(lock_);
    if (filter_ == filter)
        return false;
    filter_.swap(filter);
    return true;
}

std::shared_ptr<RunLoop> DiscoveryClient::runLoop() const
{
    std::lock_guard guard(lock_);
    return runLoop_;
}

DiscoveryClient::Modes DiscoveryClient::runLoopModes() const
{
    std::lock_guard guard(lock_);
    return modes_;
}

void DiscoveryClient::schedule(std::shared_ptr<RunLoop> runLoop, Modes modes)
{
    Feed retired; // goes after the lock
    std::lock_guard guard(lock_);
    if (runLoop_ == runLoop && modes_ == modes)
        return;
    if (runLoop_) {
        for (const auto& mode : modes_)
            runLoop_->removeSource(stubPort_, mode);
    }
    runLoop_ = std::move(runLoop);
    modes_ = std::move(modes);
    retired = std::exchange(feed_, runLoop_ ? std::make_shared<RunLoopFeed>() : nullptr);
    if (retired)
        retired->retire();
    if (!runLoop_)
        return;
    for (const auto& mode : modes_) {
        runLoop_->addSource(stubPort_, mode);
        feed_->schedule(runLoop_, mode);
    }
}

bool DiscoveryClient::isOpen(const Session* session) const
{
    std::lock_guard guard(lock_);
    return session ? session_.get() == session : session_ != nullptr;
}

void DiscoveryClient::open(std::shared_ptr<const Session> session)
{
    std::lock_guard guard(lock_);
    session_ = std::move(session);
}

std::shared_ptr<const DiscoveryClient::Session> DiscoveryClient::close(const Session* only)
{
    std::lock_guard guard(lock_);
    return only && session_.get() != only ? nullptr : std::exchange(session_, nullptr);
}

/// Whether the filter takes the service; one that throws does not.
bool DiscoveryClient::accepts(const Session& session, ADMServiceInfo& service) const
{
    std::shared_ptr<ADMDiscoveryFilter> chosen;
    {
        std::lock_guard guard(lock_);
        if (session_.get() != &session)
            return false;
        chosen = filter_;
    }
    return !chosen ||
           guarded("Discovery", "in a filter", [&] { return chosen->isAcceptedService(service); }).value_or(false);
}

bool DiscoveryClient::report(const Session& session, const Service& service, Change change)
{
    constexpr std::uint32_t foundState = 1;
    constexpr std::uint32_t removedState = 2;
    if (!accepts(session, *service))
        return false;
    const bool isFound = change == Change::found;
    service->setServiceState(isFound ? foundState : removedState);
    if (session.gathering && isFound)
        session.gathering->add(service);
    else if (session.gathering)
        session.gathering->remove(*service);
    DMFLog("debug",
           isFound ? "Discovery: discovery %@ did find service %@ for device '%@'"
                   : "Discovery: discovery %@ did remove service %@ for device '%@'",
           DescribedDiscovery{owner_}, DescribedService{service}, DescribedURI{service});
    const auto operation =
        isFound ? &ADMDiscoveryDelegate::discoveryDidFindService : &ADMDiscoveryDelegate::discoveryDidRemoveService;
    return handOverReport(callOf(operation, service), session);
}

bool DiscoveryClient::handOverReport(RunLoopFeed::Call call, const Session& session)
{
    {
        // Comparing and handing over in one step: what was found is told before the end, or not at all.
        std::lock_guard guard(lock_);
        if (session_.get() != &session)
            return false;
        if (const Feed& feed = session.feed ? session.feed : feed_) {
            feed->add(std::move(call));
            return true;
        }
    }
    call();
    return true;
}

void DiscoveryClient::handOver(RunLoopFeed::Call call, const Session* about)
{
    {
        std::lock_guard guard(lock_);
        const Session* const session = about ? about : session_.get();
        if (session && session->feed && session->feed->add(call))
            return;
        // A synchronous run that is over takes nothing any more.
        if (feed_) {
            feed_->add(std::move(call));
            return;
        }
    }
    call();
}

} // namespace dmf::internal
