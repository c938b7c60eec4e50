#include <dmf/ADMServiceDiscoveryBase.h>

#include <dmf/ADMDiscoveryThread.h>
#include <dmf/DMKeys.h>

#include <utility>
#include <vector>

#include "foundation/logging/Guarded.h"

namespace {
constexpr std::int32_t kNoThread = -1;
constexpr std::int64_t kNoImplementor = -1;

/// The thread that all back ends of the process share.
struct SharedThread {
    std::recursive_mutex lock;
    std::shared_ptr<ADMDiscoveryThread> thread; // guarded by lock
    std::size_t references = 0;                 // guarded by lock

    static SharedThread& get()
    {
        static auto* const shared = new SharedThread; // lives as long as the process
        return *shared;
    }
    /// The thread's object, which does not keep the thread from ending: that is for those who have retained it.
    static std::shared_ptr<ADMDiscoveryThread> current()
    {
        SharedThread& shared = get();
        std::lock_guard guard(shared.lock);
        return shared.thread ? std::static_pointer_cast<ADMDiscoveryThread>(shared.thread->shared_from_this())
                             : nullptr;
    }
};

/// The locks that this thread took by `lock`, the last one last: the discovery thread may end before it gives them
/// back.
std::vector<std::shared_ptr<IDMLock>>& locksOfThisThread()
{
    static thread_local std::vector<std::shared_ptr<IDMLock>> locks;
    return locks;
}

dmf::Dictionary errorReport(std::string_view description, std::int64_t code)
{
    return {{std::string(kDMErrorDescription), description}, {std::string(kDMErrorCode), code}};
}
} // namespace

ADMServiceDiscoveryBase::ADMServiceDiscoveryBase(std::string serviceName, std::string connectionType,
                                                 dmf::Dictionary parameters)
    : serviceName_(std::move(serviceName)), connectionType_(std::move(connectionType)),
      parameters_(std::move(parameters))
{
}

ADMServiceDiscoveryBase::~ADMServiceDiscoveryBase()
{
    dmf::internal::guarded("Discovery", "while a service discovery was stopped",
                           [this] { ADMServiceDiscoveryBase::stop(); });
}

dmf::Dictionary ADMServiceDiscoveryBase::resolveParameters() const
{
    std::lock_guard guard(lock_);
    return resolveParameters_;
}

void ADMServiceDiscoveryBase::setParametersToResolve(dmf::Dictionary parameters)
{
    std::lock_guard guard(lock_);
    resolveParameters_ = std::move(parameters);
}

std::shared_ptr<IDMServiceDiscoveryDelegate> ADMServiceDiscoveryBase::delegate() const
{
    std::lock_guard guard(lock_);
    return delegate_.lock();
}

void ADMServiceDiscoveryBase::setDelegate(const std::shared_ptr<IDMServiceDiscoveryDelegate>& delegate)
{
    std::lock_guard guard(lock_);
    delegate_ = delegate;
}

bool ADMServiceDiscoveryBase::startServiceDiscovery(dmf::Dictionary* error)
{
    if (!discovery_) {
        if (error)
            *error = errorReport("Invalid discovery implementor (nil).", kNoImplementor);
        return false;
    }
    const auto status = discovery_->startDiscovery(serviceName_, std::nullopt);
    if (status != 0 && error)
        *error = errorReport("Failed to start service discovery.", status);
    return status == 0;
}

void ADMServiceDiscoveryBase::stop()
{
    setDelegate(nullptr);
    if (discovery_)
        discovery_->stopDiscovery();
}

void ADMServiceDiscoveryBase::announceService(const std::shared_ptr<ADMServiceInfo>& service, bool isRemoved)
{
    const auto listener = delegate();
    if (!listener)
        return;
    if (isRemoved)
        listener->serviceDiscoveryDidDisappearService(*this, service);
    else
        listener->serviceDiscoveryDidFindService(*this, service);
}

bool ADMServiceDiscoveryBase::retainThread()
{
    SharedThread& shared = SharedThread::get();
    std::lock_guard guard(shared.lock);
    if (!shared.thread)
        shared.thread = ADMDiscoveryThread::init();
    if (!shared.thread)
        return false;
    ++shared.references;
    return true;
}

void ADMServiceDiscoveryBase::releaseThread()
{
    // The thread is stopped outside the lock: what is under way on it may ask for the thread.
    std::shared_ptr<ADMDiscoveryThread> last;
    SharedThread& shared = SharedThread::get();
    std::lock_guard guard(shared.lock);
    if (shared.references > 0 && --shared.references == 0)
        last.swap(shared.thread);
}

std::shared_ptr<dmf::RunLoop> ADMServiceDiscoveryBase::runloop()
{
    const auto thread = SharedThread::current();
    return thread ? thread->runLoop() : nullptr;
}

std::int32_t ADMServiceDiscoveryBase::lock()
{
    auto taken = lockObject();
    const std::int32_t status = taken ? taken->lock() : kNoThread;
    if (status == 0)
        locksOfThisThread().push_back(std::move(taken));
    return status;
}

std::int32_t ADMServiceDiscoveryBase::unlock()
{
    auto& taken = locksOfThisThread();
    if (taken.empty()) {
        const auto given = lockObject();
        return given ? given->unlock() : kNoThread;
    }
    const auto last = std::move(taken.back());
    taken.pop_back();
    return last->unlock();
}

std::shared_ptr<IDMLock> ADMServiceDiscoveryBase::lockObject()
{
    const auto thread = SharedThread::current();
    return thread ? thread->lockObject() : nullptr;
}

std::shared_ptr<IDMLock> ADMServiceDiscoveryBase::performAction(std::function<void()> action)
{
    const auto thread = SharedThread::current();
    return thread ? thread->performAction(std::move(action)) : nullptr;
}
