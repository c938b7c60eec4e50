#include "Browse.h"

#include <algorithm>

#include <dmf/ADMDeviceBase.h>
#include <dmf/ADMServiceInfoImp.h>
#include <dmf/DMKeys.h>
#include <dmf/DMLog.h>
#include <dmf/DeviceList.h>

#include "Messages.h"

namespace dmf::dnssd {

namespace {
constexpr double kFirstRetryDelay = 0.25; // seconds; doubles up to the longest
constexpr double kLongestRetryDelay = 10;
// Bus and daemon answer at once. One that is late is told of, and waited for a while longer.
constexpr double kLateAfter = 1.5;
constexpr double kConnectLimit = 10;
constexpr double kLateAnswers = 3;
/// The daemon limits what one client may have under way.
constexpr int kAskedAtOnce = 16;
/// The daemon looks five seconds for a service's TXT record each time.
constexpr unsigned kAttempts = 3;

class ThreadLock {
public:
    ThreadLock() : lock_(ADMServiceDiscoveryBase::lockObject())
    {
        if (lock_)
            lock_->lock();
    }
    ~ThreadLock()
    {
        if (lock_)
            lock_->unlock();
    }
    ThreadLock(const ThreadLock&) = delete;
    ThreadLock& operator=(const ThreadLock&) = delete;

private:
    const std::shared_ptr<IDMLock> lock_;
};

/// Keeps the discovery thread. It is let go on that thread, wherever the last holder goes: elsewhere that would wait
/// for the thread's end.
std::shared_ptr<void> usedThread()
{
    if (!ADMServiceDiscoveryBase::retainThread())
        return nullptr;
    static char something;
    return {&something, [](void*) {
                if (!ADMServiceDiscoveryBase::performAction([] { ADMServiceDiscoveryBase::releaseThread(); }))
                    ADMServiceDiscoveryBase::releaseThread();
            }};
}

Dictionary troubleOf(Browse::TroubleCode code, const std::string& description)
{
    return {{std::string(kDMErrorDescription), description}, {std::string(kDMErrorCode), std::int32_t{code}}};
}
} // namespace

Browse::Browse(std::weak_ptr<ADMServiceDiscoveryBase> discovery, std::vector<std::string> types,
               std::string deviceClass)
    : discovery_(std::move(discovery)), types_(std::move(types)), deviceClass_(std::move(deviceClass)),
      retryDelay_(kFirstRetryDelay)
{
}

bool Browse::begin()
{
    thread_ = usedThread();
    return thread_ && ADMServiceDiscoveryBase::performAction([self = shared_from_this()] {
               if (!self->isEnded_)
                   self->connect();
           });
}

void Browse::end()
{
    isEnded_ = true;
    // It keeps the thread, so this is not dropped.
    ADMServiceDiscoveryBase::performAction([self = shared_from_this()] {
        self->disconnect();
        self->services_.clear();
        self->thread_ = nullptr;
    });
}

Dictionary Browse::trouble()
{
    if (!isEnded_ && !isSignOfLifeWanted_.exchange(true)) {
        const auto isQueued = ADMServiceDiscoveryBase::performAction([weak = weak_from_this()] {
            const auto self = weak.lock();
            if (self && !self->isEnded_)
                self->askForSignOfLife();
        });
        if (!isQueued)
            isSignOfLifeWanted_ = false;
    }
    std::lock_guard guard(troubleLock_);
    return trouble_;
}

/// Only of a daemon that has made its browsers: until then it is waited for anyway.
void Browse::askForSignOfLife()
{
    if (!link_ || browsersMade_ != types_.size())
        return forgetSignOfLife();
    signOfLifeTimer_ = timerAfter(kLateAfter, &Browse::daemonIsLate);
    link_->call("GetState", nullptr, [weak = weak_from_this(), link = std::weak_ptr(link_)](GVariant* answer, auto*) {
        const auto self = weak.lock();
        const ThreadLock guard;
        if (!self || self->isEnded_ || self->link_ != link.lock() || !self->signOfLifeTimer_)
            return;
        self->forgetSignOfLife();
        if (answer)
            self->setTrouble({});
    });
}

void Browse::forgetSignOfLife()
{
    if (signOfLifeTimer_)
        signOfLifeTimer_->invalidate();
    signOfLifeTimer_ = nullptr;
    isSignOfLifeWanted_ = false;
}

void Browse::setTrouble(Dictionary trouble)
{
    const auto text = trouble.string(kDMErrorDescription);
    {
        std::lock_guard guard(troubleLock_);
        if (trouble == trouble_)
            return;
        std::swap(trouble_, trouble);
    }
    if (text)
        DMFLog("warnings", "Discovery: browsing for DNS-SD services: %@", text);
}

// Bus and daemon

void Browse::connect()
{
    disconnect();
    DaemonLink::Events events;
    const auto weak = weak_from_this();
    const auto onThis = [weak](auto work) {
        const auto self = weak.lock();
        const ThreadLock guard;
        if (self && !self->isEnded_)
            work(*self);
    };
    events.daemonCame = [onThis] { onThis([](Browse& self) { self.startBrowsers(); }); };
    events.daemonWent = [onThis] {
        onThis([](Browse& self) {
            self.stopTimer(); // its coming is told
            self.forgetPlaces();
            self.setTrouble(troubleOf(noDaemon, "The Avahi daemon is not running."));
        });
    };
    events.busWent = [onThis](const std::string& reason) {
        onThis([&](Browse& self) {
            self.setTrouble(troubleOf(noBus, "The system bus cannot be reached (" + reason + ")."));
            self.retryLater();
        });
    };
    link_ = std::make_shared<DaemonLink>(std::move(events), thread_);
    after(kLateAfter, &Browse::busIsLate);
    link_->open();
}

void Browse::busIsLate()
{
    setTrouble(troubleOf(noBus, "The system bus does not answer."));
    after(kConnectLimit - kLateAfter, &Browse::retryLater);
}

/// Its answer may still come; when the call's limit comes first, it is tried again.
void Browse::daemonIsLate()
{
    setTrouble(troubleOf(daemonFails, "The Avahi daemon does not answer."));
}

void Browse::disconnect()
{
    stopTimer();
    if (link_)
        link_->close();
    link_ = nullptr;
    forgetPlaces();
}

void Browse::retryLater()
{
    disconnect();
    after(retryDelay_, &Browse::connect);
    retryDelay_ = std::min(retryDelay_ * 2, kLongestRetryDelay);
}

void Browse::after(double seconds, void (Browse::*work)())
{
    stopTimer();
    timer_ = timerAfter(seconds, work);
}

std::shared_ptr<RunLoopTimer> Browse::timerAfter(double seconds, void (Browse::*work)())
{
    const auto timer = RunLoopTimer::create(Date::now().addingTimeInterval(seconds), 0, RunLoopTimer::Repeat::no,
                                            [weak = weak_from_this(), work](RunLoopTimer&) {
                                                const auto self = weak.lock();
                                                const ThreadLock guard;
                                                if (self && !self->isEnded_)
                                                    ((*self).*work)();
                                            });
    if (const auto loop = ADMServiceDiscoveryBase::runloop())
        loop->addTimer(timer, kDefaultRunLoopMode);
    return timer;
}

void Browse::stopTimer()
{
    if (timer_)
        timer_->invalidate();
    timer_ = nullptr;
}

void Browse::startBrowsers()
{
    stopTimer();
    forgetPlaces();
    after(kLateAfter, &Browse::daemonIsLate);
    for (const auto& type : types_) {
        const auto signal = [weak = weak_from_this(), type](std::string_view name, GVariant* arguments) {
            const auto self = weak.lock();
            const ThreadLock guard;
            if (self && !self->isEnded_)
                self->receive(type, name, arguments);
        };
        const auto made = [weak = weak_from_this()](const GError* error) {
            const auto self = weak.lock();
            const ThreadLock guard;
            if (!self || self->isEnded_)
                return;
            if (error) {
                if (!isTimeOut(error)) // it was late before
                    self->setTrouble(troubleOf(daemonFails, std::string("The Avahi daemon fails: ") + error->message));
                self->retryLater();
            } else if (++self->browsersMade_ == self->types_.size()) {
                self->stopTimer();
                self->retryDelay_ = kFirstRetryDelay;
                self->setTrouble({});
            }
        };
        link_->browse("ServiceBrowserNew", browserArguments(type), signal, made);
    }
}

// Services

void Browse::receive(const std::string& type, std::string_view signal, GVariant* arguments)
{
    if (signal == "AllForNow") {
        if (++typesBrowsed_ == types_.size())
            browsedAll();
    } else if (signal == "Failure") {
        setTrouble(troubleOf(daemonFails, "The Avahi daemon fails: " + failureIn(arguments)));
        retryLater();
    } else if (const auto item = itemIn(arguments)) {
        if (signal == "ItemNew")
            seen({item->interface, item->protocol}, {item->name, type, item->domain});
        else if (signal == "ItemRemove")
            unseen({item->interface, item->protocol}, {item->name, type, item->domain});
    }
}

void Browse::seen(Place place, ServiceName name)
{
    auto key = name.key();
    const auto [entry, isNew] = services_.try_emplace(key);
    entry->second.seenAt.insert(place);
    if (!isNew)
        return;
    entry->second.name = std::move(name);
    toAsk_.push_back(std::move(key));
    askNext();
}

void Browse::unseen(Place place, const ServiceName& name)
{
    const auto entry = services_.find(name.key());
    if (entry == services_.end())
        return;
    auto& service = entry->second;
    service.seenAt.erase(place);
    if (!service.seenAt.empty())
        return;
    const auto info = service.info;
    services_.erase(entry);
    if (info)
        report(info, true);
}

/// Everything that the daemon could learn at once has been told. What was found before daemon or bus had gone, and was
/// not seen since, may have vanished meanwhile; but a question or an answer can be lost on the way, and the daemon asks
/// again after one second and after three.
void Browse::browsedAll()
{
    if (std::any_of(services_.begin(), services_.end(), [](const auto& each) { return each.second.seenAt.empty(); }))
        after(kLateAnswers, &Browse::reportVanished);
}

void Browse::reportVanished()
{
    std::vector<std::shared_ptr<ADMServiceInfo>> lost;
    for (auto entry = services_.begin(); entry != services_.end();) {
        if (!entry->second.seenAt.empty()) {
            ++entry;
            continue;
        }
        if (entry->second.info)
            lost.push_back(entry->second.info);
        entry = services_.erase(entry);
    }
    for (const auto& info : lost)
        report(info, true);
}

void Browse::forgetPlaces()
{
    forgetSignOfLife();
    browsersMade_ = typesBrowsed_ = 0;
    toAsk_.clear();
    beingAsked_ = 0;
    std::erase_if(services_, [](const auto& entry) { return entry.second.state != Service::State::reported; });
    for (auto& [key, service] : services_)
        service.seenAt.clear();
}

// What services say of themselves

void Browse::askNext()
{
    while (beingAsked_ < kAskedAtOnce && !toAsk_.empty() && link_) {
        const auto key = std::move(toAsk_.front());
        toAsk_.pop_front();
        const auto entry = services_.find(key);
        if (entry != services_.end() && entry->second.state == Service::State::asked)
            ask(key, entry->second);
    }
}

void Browse::ask(const std::string& key, Service& service)
{
    ++beingAsked_;
    // At another place each time: one of them may lead nowhere.
    const auto place = std::next(service.seenAt.begin(), service.attempts++ % service.seenAt.size());
    link_->call("ResolveService", resolveArguments(service.name, place->first, place->second),
                [weak = weak_from_this(), link = std::weak_ptr(link_), key](GVariant* answer, const GError*) {
                    const auto self = weak.lock();
                    const ThreadLock guard;
                    if (self && !self->isEnded_ && self->link_ == link.lock())
                        self->answered(key, answer);
                });
}

void Browse::answered(const std::string& key, GVariant* answer)
{
    --beingAsked_;
    const auto entry = services_.find(key);
    if (entry != services_.end() && entry->second.state == Service::State::asked) {
        auto& service = entry->second;
        const auto resolved = resolvedIn(answer);
        if (resolved)
            settle(service, TxtRecord(resolved->txt).identity());
        else if (service.attempts < kAttempts)
            toAsk_.push_back(key);
        else
            settle(service, {}); // it is announced, so it is there; it just does not say more
    }
    if (!isEnded_)
        askNext();
}

void Browse::settle(Service& service, const Identity& identity)
{
    service.state = Service::State::unwanted;
    if (identity.vendor && !ADMDeviceBase::isSupportedVendorName(*identity.vendor))
        return;
    const auto uri = service.name.uri();
    const auto info = uri ? ADMServiceInfoImp::initWithURI(*uri, deviceClass_) : nullptr;
    if (!info) {
        DMFLog("debug", "Discovery: no URI can name the service '%@' of type '%@' in '%@'", service.name.name,
               service.name.type, service.name.domain);
        return;
    }
    info->setVendorName(identity.vendor);
    info->setModelName(identity.model);
    if (identity.serialNumber)
        info->setConnectionParams({{std::string(kSerialNumberParam), *identity.serialNumber}});
    if (identity.uuid)
        info->setConnectionParams({{std::string(kDeviceUUIDParam), *identity.uuid}});
    service.state = Service::State::reported;
    service.info = info;
    report(info, false);
}

/// The client may stop, or let go of, everything from inside the report: nothing is touched after it that has not been
/// looked for anew.
void Browse::report(std::shared_ptr<ADMServiceInfo> service, bool isLost)
{
    const auto discovery = discovery_.lock();
    if (discovery && !isEnded_)
        discovery->announceService(service, isLost);
}

} // namespace dmf::dnssd
