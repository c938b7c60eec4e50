#include "SimulatedDevice.h"

#include <algorithm>
#include <condition_variable>
#include <map>
#include <string>

#include <dmf/DMKeys.h>

namespace dmf::simulated {

namespace {
constexpr std::string_view kWrittenKey = "written";
constexpr std::size_t kWrittenLimit = 16 * 1024 * 1024;

/// Counts the searches for one URI, since every search makes a device anew; found ones are forgotten.
bool isFoundNow(const std::string& uri, std::uint32_t foundAfter)
{
    struct Searches {
        std::mutex lock;
        std::map<std::string, std::uint32_t> failed; // guarded by lock
    };
    static auto* const searches = new Searches;
    std::lock_guard guard(searches->lock);
    auto& failed = searches->failed[uri];
    if (failed++ < foundAfter)
        return false;
    searches->failed.erase(uri);
    return true;
}

/// Lets time pass as a slow search would; false when the handler cancels.
bool search(Milliseconds delay, const std::shared_ptr<IDMDeviceHandler>& handler)
{
    std::mutex lock;
    std::condition_variable never;
    std::unique_lock held(lock);
    const auto until = Clock::now() + delay;
    while (Clock::now() < until) {
        if (handler && handler->isCanceledForDevice(nullptr))
            return false;
        never.wait_until(held, std::min(until, Clock::now() + Milliseconds(50)));
    }
    return true;
}
} // namespace

std::shared_ptr<IDMDevice> SimulatedDevice::initFromInfo(const Dictionary& spec,
                                                         const std::shared_ptr<IDMDeviceHandler>& handler)
{
    const auto* const params = spec[kParamsProp].asDictionary();
    auto script = Script::fromParameters(params ? *params : spec);
    if (!search(script.searchDelay, handler) || !script.isReachable)
        return nullptr;
    if (script.foundAfter > 0 && !isFoundNow(spec.string(kURIProp).value_or(""), script.foundAfter))
        return nullptr;
    return std::make_shared<SimulatedDevice>(spec, std::move(script));
}

SimulatedDevice::SimulatedDevice(const Dictionary& spec, Script script) : script_(std::move(script)), spec_(spec) {}

Dictionary SimulatedDevice::retrieveParameters(const Dictionary& parameters, std::shared_ptr<IDMDeviceHandler>)
{
    Dictionary identity;
    for (const auto key : {kVendorNameProp, kModelNameProp, kDeviceNameProp, kParamsProp})
        identity.set(key, spec_[key]);
    if (parameters.contains(kWrittenKey)) {
        const auto* const known = identity[kParamsProp].asDictionary();
        Dictionary params = known ? *known : Dictionary();
        std::lock_guard guard(lock_);
        params.set(kWrittenKey, written_);
        identity.set(kParamsProp, std::move(params));
    }
    return identity;
}

void SimulatedDevice::keepWritten(std::span<const std::uint8_t> bytes)
{
    std::lock_guard guard(lock_);
    written_.append(bytes.first(std::min(bytes.size(), kWrittenLimit - written_.size())));
}

} // namespace dmf::simulated
