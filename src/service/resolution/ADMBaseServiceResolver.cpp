#include <dmf/ADMBaseServiceResolver.h>

#include <dmf/DMKeys.h>
#include <dmf/IDMDevice.h>
#include <dmf/platform/Error.h>

#include <cmath>
#include <utility>

ADMBaseServiceResolver::ADMBaseServiceResolver() = default;

ADMBaseServiceResolver::~ADMBaseServiceResolver()
{
    removeTimer();
}

std::string ADMBaseServiceResolver::connectionType()
{
    throw dmf::UnrecognizedOperation("ADMBaseServiceResolver", "connectionType");
}

void ADMBaseServiceResolver::resolveService(std::shared_ptr<ADMServiceInfo>, double timeout,
                                            const dmf::Dictionary& parameters, std::shared_ptr<dmf::RunLoop> runLoop,
                                            const std::vector<std::string>& modes)
{
    std::shared_ptr<IDMDevice> earlier; // goes after the lock: its end may wait for a thread that asks this resolver
    std::lock_guard guard(lock_);
    lastError_ = {};
    resolving_ = true;
    runLoop_ = runLoop;
    modes_ = modes;
    timeout_ = timeout;
    parameters_ = parameters;
    resolvedInfo_ = {};
    std::swap(resolvedDevice_, earlier);
}

void ADMBaseServiceResolver::stop()
{
    setResolving(false);
    removeTimer();
}

void ADMBaseServiceResolver::setupTimer()
{
    removeTimer(); // one of an earlier resolution would end this one early
    std::lock_guard guard(lock_);
    const auto runLoop = runLoop_.lock();
    if (!runLoop || modes_.empty())
        return;
    // Every resolution ends with a word to the delegate: what is no length of time is none at all.
    const double seconds = std::isnan(timeout_) ? 0 : timeout_;
    const auto fireDate = std::isfinite(seconds) ? dmf::Date::afterNow(seconds)
                          : seconds > 0          ? dmf::Date::distantFuture()
                                                 : dmf::Date::now();
    timer_ = dmf::RunLoopTimer::create(fireDate, 0, dmf::RunLoopTimer::Repeat::no,
                                       [weak = weak_from_this()](dmf::RunLoopTimer& fired) {
                                           const auto self = weak.lock();
                                           if (self && self->isCurrentTimer(fired))
                                               self->timeoutDidFire();
                                       });
    for (const auto& mode : modes_)
        runLoop->addTimer(timer_, mode);
}

bool ADMBaseServiceResolver::isCurrentTimer(const dmf::RunLoopTimer& timer) const
{
    std::lock_guard guard(lock_);
    return timer_.get() == &timer;
}

void ADMBaseServiceResolver::removeTimer()
{
    std::shared_ptr<dmf::RunLoopTimer> timer;
    {
        std::lock_guard guard(lock_);
        timer = std::exchange(timer_, nullptr);
    }
    if (timer)
        timer->invalidate();
}

void ADMBaseServiceResolver::timeoutDidFire()
{
    std::lock_guard guard(lock_);
    timer_ = nullptr;
    resolving_ = false;
    lastError_ = errorWithDescription("Resolving timed out.");
}

void ADMBaseServiceResolver::tellDelegate()
{
    const auto keptAlive = weak_from_this().lock();
    const auto told = delegate();
    if (told && told->serviceResolverDidFinish)
        told->serviceResolverDidFinish(*this);
}

dmf::Dictionary ADMBaseServiceResolver::errorWithDescription(std::string_view description)
{
    dmf::Dictionary error;
    error.set(kDMErrorCode, -1);
    error.set(kDMErrorDescription, description);
    return error;
}

dmf::Dictionary ADMBaseServiceResolver::lastError() const
{
    std::lock_guard guard(lock_);
    return lastError_;
}

dmf::Dictionary ADMBaseServiceResolver::resolvedInfo() const
{
    std::lock_guard guard(lock_);
    return resolvedInfo_;
}

std::shared_ptr<IDMDevice> ADMBaseServiceResolver::resolvedDevice() const
{
    std::lock_guard guard(lock_);
    return resolvedDevice_;
}

std::shared_ptr<ADMServiceResolverDelegate> ADMBaseServiceResolver::delegate() const
{
    std::lock_guard guard(lock_);
    return delegate_.lock();
}

void ADMBaseServiceResolver::setDelegate(const std::shared_ptr<ADMServiceResolverDelegate>& delegate)
{
    std::lock_guard guard(lock_);
    delegate_ = delegate;
}

dmf::Dictionary ADMBaseServiceResolver::parameters() const
{
    std::lock_guard guard(lock_);
    return parameters_;
}

std::shared_ptr<dmf::RunLoop> ADMBaseServiceResolver::runLoop() const
{
    std::lock_guard guard(lock_);
    return runLoop_.lock();
}

std::vector<std::string> ADMBaseServiceResolver::modes() const
{
    std::lock_guard guard(lock_);
    return modes_;
}

double ADMBaseServiceResolver::timeout() const
{
    std::lock_guard guard(lock_);
    return timeout_;
}

bool ADMBaseServiceResolver::isResolving() const
{
    std::lock_guard guard(lock_);
    return resolving_;
}

void ADMBaseServiceResolver::setResolvedInfo(dmf::Dictionary info, std::shared_ptr<IDMDevice> device)
{
    std::lock_guard guard(lock_);
    std::swap(resolvedInfo_, info);
    std::swap(resolvedDevice_, device); // what it was goes with the argument, after the lock
}

void ADMBaseServiceResolver::setLastError(dmf::Dictionary error)
{
    std::lock_guard guard(lock_);
    lastError_ = std::move(error);
}

void ADMBaseServiceResolver::setParameters(dmf::Dictionary parameters)
{
    std::lock_guard guard(lock_);
    parameters_ = std::move(parameters);
}

void ADMBaseServiceResolver::setModes(std::vector<std::string> modes)
{
    std::lock_guard guard(lock_);
    modes_ = std::move(modes);
}

void ADMBaseServiceResolver::setRunLoop(const std::shared_ptr<dmf::RunLoop>& runLoop)
{
    std::lock_guard guard(lock_);
    runLoop_ = runLoop;
}

void ADMBaseServiceResolver::setTimeout(double timeout)
{
    std::lock_guard guard(lock_);
    timeout_ = timeout;
}

void ADMBaseServiceResolver::setResolving(bool resolving)
{
    std::lock_guard guard(lock_);
    resolving_ = resolving;
}
