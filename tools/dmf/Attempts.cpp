#include "Attempts.h"

#include <dmf/ADMServiceInfo.h>
#include <dmf/ADMThreadedServiceResolver.h>
#include <dmf/IDMDevice.h>
#include <dmf/platform/Class.h>

#include <mutex>
#include <utility>

namespace dmf::tool {

struct Attempts::State {
    std::chrono::steady_clock::time_point start = std::chrono::steady_clock::now();
    std::shared_ptr<RunLoop> runLoop;
    std::shared_ptr<RunLoopSource> source;
    std::mutex lock;
    std::vector<Attempt> attempts; // guarded by lock

    [[nodiscard]] double elapsed() const
    {
        return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    }

    void add(bool found, Dictionary info)
    {
        {
            std::lock_guard guard(lock);
            attempts.push_back({elapsed(), found, std::move(info)});
        }
        source->signal();
        runLoop->wakeUp();
    }
};

// Has the device located and asks it who it is, as the library's resolver for every type does.
class Attempts::Resolver final : public ADMThreadedServiceResolver, public IDMDeviceHandler {
public:
    explicit Resolver(std::shared_ptr<State> state) : state_(std::move(state)) {}
    ~Resolver() override { stop(); }

    void findService() override
    {
        const std::shared_ptr<IDMDeviceHandler> handler(shared_from_this(), this);
        const auto service = serviceInfo();
        const auto device = service ? service->locateDeviceWithHandler(handler) : nullptr;
        if (!device) {
            setLastError(errorWithDescription("Cannot resolve device under specified URI."));
            state_->add(false, {});
            return;
        }
        Dictionary info = device->retrieveParameters(parameters(), handler);
        if (isResolving())
            setResolvedInfo(info, device);
        state_->add(true, std::move(info));
    }

    bool isCanceledForDevice(const IDMDevice*) override { return !isResolving(); }

private:
    const std::shared_ptr<State> state_;
};

Attempts::Attempts(std::shared_ptr<RunLoop> runLoop, Report report)
    : state_(std::make_shared<State>()), runLoop_(std::move(runLoop)), report_(std::move(report))
{
    state_->runLoop = runLoop_;
    state_->source = RunLoopSource::create([this] { tell(); });
    runLoop_->addSource(state_->source, kDefaultRunLoopMode);
}

Attempts::~Attempts()
{
    state_->source->invalidate();
}

void Attempts::observe(const std::string& connectionType)
{
    static const char anchor = 0;
    auto resolverClass = std::make_shared<Class>("DMToolAttemptResolver", &anchor);
    resolverClass->implements<ADMServiceResolver>([state = state_] { return std::make_shared<Resolver>(state); });
    ADMServiceResolver::sharedFactory().addResolverClass(std::move(resolverClass), connectionType);
}

std::vector<Attempts::Attempt> Attempts::made()
{
    tell();
    std::lock_guard guard(state_->lock);
    return state_->attempts;
}

double Attempts::elapsed() const
{
    return state_->elapsed();
}

void Attempts::tell()
{
    std::vector<Attempt> attempts;
    {
        std::lock_guard guard(state_->lock);
        attempts = state_->attempts;
    }
    for (; told_ < attempts.size(); ++told_)
        report_(told_ + 1, attempts[told_]);
}

} // namespace dmf::tool
