#include "SimulatedProvider.h"

#include <chrono>
#include <condition_variable>
#include <filesystem>

#include <dmf/ADMIOProvider.h>
#include <dmf/ADMPlugInManager.h>
#include <dmf/ADMServiceDiscoveryBase.h>
#include <dmf/ADMServiceInfoImp.h>
#include <dmf/DMKeys.h>
#include <dmf/platform/Bundle.h>

namespace dmf::simulated {
namespace {
constexpr std::string_view kScheme = "simulated";
const char kAnchor = 0; // any address of this bundle's object

/// Whether services under the scheme can be made; brings the simulated device along where nobody has.
bool isDeviceThere()
{
    const auto manager = ADMPlugInManager::sharedManager();
    const Dictionary matching{{std::string(kDMMockScheme), kScheme}};
    const auto isRegistered = [&] {
        return manager->implementorForProtocol(ADMIOProvider::protocol(), matching) != nullptr;
    };
    if (isRegistered())
        return true;
    const std::filesystem::path own(Bundle::bundleForAddress(&kAnchor)->path());
    const auto device = Bundle::bundleAtPath((own / "../../MockPlugIns/simulated.bundle").lexically_normal().string());
    if (!device || !device->load())
        return false;
    manager->registerMockImplementors(device->infoDictionary());
    return isRegistered();
}

/// The discovery thread's lock, under which its work runs; a report may throw.
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

/// A start that takes its time; nobody ends it early, as with back ends of that kind.
void block(double seconds)
{
    std::mutex lock;
    std::unique_lock guard(lock);
    const auto end = std::chrono::steady_clock::now() + std::chrono::duration<double>(seconds);
    std::condition_variable never;
    never.wait_until(guard, end, [end] { return std::chrono::steady_clock::now() >= end; });
}
} // namespace

SimulatedProvider::SimulatedProvider(const std::shared_ptr<ADMServiceDiscoveryBase>& parent,
                                     const Simulation& simulation)
    : ADMDiscoveryProvider(parent), simulation_(simulation)
{
}

SimulatedProvider::~SimulatedProvider()
{
    stopDiscovery();
}

ADMDiscoveryProvider::Status SimulatedProvider::startDiscovery(std::string_view serviceName,
                                                               std::optional<std::string_view>)
{
    if (simulation_.startDelay > 0)
        block(simulation_.startDelay);
    if (simulation_.startStatus != 0)
        return simulation_.startStatus;
    if (!isDeviceThere())
        return kNoDevice;
    const auto loop = ADMServiceDiscoveryBase::runloop();
    if (!loop)
        return kNoThread;

    stopDiscovery();
    const auto announcements =
        std::make_shared<Announcements>(simulation_, ADMServiceInfoImp::deviceClassForServiceName(serviceName));
    const auto timer = RunLoopTimer::create(
        Date::now(), simulation_.interval, RunLoopTimer::Repeat::yes,
        [weak = std::weak_ptr(parent()), announcements, burst = simulation_.burst,
         isImmediate = simulation_.interval == 0](RunLoopTimer& own) {
            const ThreadLock guard;
            const auto discovery = weak.lock();
            for (auto left = burst; discovery && left > 0 && own.isValid() && !announcements->isAtEnd(); --left) {
                const auto [service, isRemoval] = announcements->next();
                discovery->announceService(service, isRemoval);
            }
            if (!discovery || announcements->isAtEnd())
                own.invalidate();
            else if (isImmediate)
                own.setFireDate(Date::now());
        });
    std::lock_guard guard(lock_);
    timer_ = timer;
    loop->addTimer(timer, kDefaultRunLoopMode);
    return 0;
}

ADMDiscoveryProvider::Status SimulatedProvider::stopDiscovery()
{
    std::lock_guard guard(lock_);
    if (timer_)
        timer_->invalidate();
    timer_ = nullptr;
    return 0;
}

} // namespace dmf::simulated
