#include <dmf/ADMOperationBasedFunctionalServiceImp.h>

#include <dmf/ADMAuthenticationContextImpl.h>
#include <dmf/DMLog.h>

#include <exception>
#include <utility>

#include "foundation/logging/AfterFork.h"

using dmf::Date;
using dmf::RunLoop;
using dmf::RunLoopSource;

namespace {

using Operation = std::shared_ptr<IDMSchedulableOperation>;

/// Keeps a mode of a run loop from ending for want of sources: without one it would return at once, and whoever waits
/// in it would spin.
class KeptMode {
public:
    KeptMode(RunLoop& runLoop, std::string_view mode) : source_(RunLoopSource::create({}))
    {
        runLoop.addSource(source_, mode);
    }
    ~KeptMode() { source_->invalidate(); }
    KeptMode(const KeptMode&) = delete;
    KeptMode& operator=(const KeptMode&) = delete;

private:
    const std::shared_ptr<RunLoopSource> source_;
};

} // namespace

ADMOperationBasedFunctionalServiceImp::ADMOperationBasedFunctionalServiceImp(Initializer&& initializer)
    : ADMFunctionalServiceImp(std::move(initializer))
{
}

ADMOperationBasedFunctionalServiceImp::~ADMOperationBasedFunctionalServiceImp()
{
    for (const auto& operation : operations()) {
        try {
            ADMOperationBasedFunctionalServiceImp::unscheduleOperation(operation);
        } catch (const std::exception& exception) {
            DMFLog("errors", "ADMOperationBasedFunctionalServiceImp: Exception %@ while unscheduling operation: %p",
                   exception, operation);
        }
    }
}

std::shared_ptr<dmf::Delegate> ADMOperationBasedFunctionalServiceImp::delegate() const
{
    std::lock_guard guard(lock());
    return delegate_.lock();
}

void ADMOperationBasedFunctionalServiceImp::setDelegate(const std::shared_ptr<dmf::Delegate>& delegate)
{
    std::lock_guard guard(lock());
    delegate_ = delegate;
}

// Run loops

void ADMOperationBasedFunctionalServiceImp::scheduleInRunLoop(const std::shared_ptr<RunLoop>& runLoop,
                                                              std::optional<std::string_view> mode)
{
    std::lock_guard guard(lock());
    if (runLoop != runLoop_) {
        runLoop_ = runLoop;
        runLoopModes_.clear();
    }
    if (runLoop_ && mode)
        runLoopModes_.emplace(*mode);
}

void ADMOperationBasedFunctionalServiceImp::removeFromRunLoop(const std::shared_ptr<RunLoop>& runLoop,
                                                              std::optional<std::string_view> mode)
{
    std::lock_guard guard(lock());
    if (runLoop != runLoop_ || !mode)
        return;
    runLoopModes_.erase(std::string(*mode));
    if (runLoopModes_.empty())
        runLoop_ = nullptr;
}

std::shared_ptr<RunLoop> ADMOperationBasedFunctionalServiceImp::runLoop() const
{
    std::lock_guard guard(lock());
    return runLoop_;
}

std::set<std::string> ADMOperationBasedFunctionalServiceImp::runLoopModes() const
{
    std::lock_guard guard(lock());
    return runLoopModes_;
}

// Operations

void ADMOperationBasedFunctionalServiceImp::scheduleOperation(const Operation& operation)
{
    if (!operation || dmf::internal::isRefusedAfterFork())
        return;
    // What the operation does meanwhile may be the end of any of them.
    const auto kept = operation;
    const auto keptAlive = std::static_pointer_cast<ADMOperationBasedFunctionalServiceImp>(shared_from_this());
    kept->setDelegate(keptAlive);
    {
        // Under the lock, so that the service's run loop does not change half way.
        std::lock_guard guard(lock());
        if (const auto runLoop = runLoop_) {
            for (const auto modes = runLoopModes_; const auto& mode : modes)
                kept->scheduleInRunLoop(runLoop, mode);
        }
    }
    addOperation(kept);
    kept->scheduleOperation();
}

void ADMOperationBasedFunctionalServiceImp::unscheduleOperation(const Operation& operation)
{
    if (!operation)
        return;
    const auto kept = operation;                    // the list may hold the reference that the caller has shown
    const auto keptAlive = weak_from_this().lock(); // none while the service goes
    kept->setDelegate(nullptr);
    {
        std::lock_guard guard(lock());
        if (const auto runLoop = runLoop_) {
            for (const auto modes = runLoopModes_; const auto& mode : modes)
                kept->removeFromRunLoop(runLoop, mode);
        }
    }
    removeOperation(kept);
}

void ADMOperationBasedFunctionalServiceImp::unscheduleAllOperations()
{
    const auto keptAlive = weak_from_this().lock();
    for (const auto& operation : operations())
        unscheduleOperation(operation);
}

void ADMOperationBasedFunctionalServiceImp::addOperation(Operation operation)
{
    if (!operation)
        return;
    std::lock_guard guard(lock());
    operations_.push_back(std::move(operation));
}

void ADMOperationBasedFunctionalServiceImp::removeOperation(const Operation& operation)
{
    const auto kept = operation; // goes outside the lock
    std::lock_guard guard(lock());
    std::erase(operations_, kept);
}

std::vector<Operation> ADMOperationBasedFunctionalServiceImp::operations() const
{
    std::lock_guard guard(lock());
    return operations_;
}

void ADMOperationBasedFunctionalServiceImp::performOperation(const Operation& operation)
{
    if (!operation || dmf::internal::isRefusedAfterFork())
        return;
    const auto keptAlive = shared_from_this(); // the outcome may be the last that the client wants of it
    const auto performed = operation;
    const auto runLoop = RunLoop::current();
    const std::string mode = runLoopMode();
    const KeptMode kept(*runLoop, mode);
    performed->scheduleInRunLoop(runLoop, mode);
    try {
        performed->scheduleOperation();
        while (!performed->isFinished())
            runLoop->runMode(mode, Date::afterNow(runQuantum()), true);
    } catch (...) {
        performed->removeFromRunLoop(runLoop, mode);
        throw;
    }
    performed->removeFromRunLoop(runLoop, mode);
}

double ADMOperationBasedFunctionalServiceImp::runQuantum() const
{
    return 0.5;
}

double ADMOperationBasedFunctionalServiceImp::timeout() const
{
    return 0.0;
}

std::string ADMOperationBasedFunctionalServiceImp::runLoopMode() const
{
    return "com.ql.dmf.runloop.mode.sync.operation";
}

std::shared_ptr<IDMAuthenticationContext> ADMOperationBasedFunctionalServiceImp::authenticationContext()
{
    std::lock_guard guard(lock());
    if (!authenticationContext_)
        authenticationContext_ = std::make_shared<ADMAuthenticationContextImpl>(serviceInfo());
    return authenticationContext_;
}
