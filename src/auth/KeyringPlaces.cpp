#include "auth/KeyringPlaces.h"

#include <chrono>
#include <condition_variable>
#include <map>
#include <mutex>
#include <utility>

#include <dmf/ADMServiceInfo.h>

#include "platform/host/Thread.h"

namespace dmf::internal {
namespace {

/// One look-up of a service's place: under way, until its thread answers. Shared by the thread and those who wait.
class LookUp {
public:
    void answer(std::optional<KeyringPlace> place)
    {
        std::lock_guard guard(lock_);
        place_ = std::move(place);
        isAnswered_ = true;
        answered_.notify_all();
    }
    [[nodiscard]] std::optional<KeyringPlace> wait(double seconds)
    {
        std::unique_lock guard(lock_);
        answered_.wait_for(guard, std::chrono::duration<double>(seconds), [this] { return isAnswered_; });
        return place_;
    }

private:
    std::mutex lock_;
    std::condition_variable answered_;
    std::optional<KeyringPlace> place_; // guarded by lock_
    bool isAnswered_ = false;           // guarded by lock_
};

/// The look-ups that are under way, by their services, which their threads keep alive. Lives as long as the process.
class LookUps {
public:
    static LookUps& shared()
    {
        static LookUps* const all = new LookUps;
        return *all;
    }

    /// The service's, which is begun where none is under way; null when no thread could be had.
    [[nodiscard]] std::shared_ptr<LookUp> join(const std::shared_ptr<ADMServiceInfo>& service)
    {
        std::lock_guard guard(lock_);
        std::shared_ptr<LookUp>& entry = underWay_[service.get()];
        if (entry)
            return entry;
        auto begun = entry = std::make_shared<LookUp>();
        const auto body = [this, service, begun] {
            auto place = placeOf(*service);
            end(*service); // who asks from here on begins another: the model may be another by then
            begun->answer(std::move(place));
        };
        if (startThread("dmf-keyring", ThreadForm::detached, body) == 0)
            return begun;
        underWay_.erase(service.get());
        return nullptr;
    }

private:
    /// A service is called by its model, which people know, or else by its URI.
    static std::optional<KeyringPlace> placeOf(ADMServiceInfo& service)
    {
        try {
            if (const auto uri = service.uri())
                return KeyringPlace{*uri, service.modelName().value_or(*uri)};
        } catch (...) {
            // What the program's or a plug-in's own code throws is an answer that never came.
        }
        return std::nullopt;
    }
    void end(const ADMServiceInfo& service)
    {
        std::lock_guard guard(lock_);
        underWay_.erase(&service);
    }

    std::mutex lock_;
    std::map<const ADMServiceInfo*, std::shared_ptr<LookUp>> underWay_; // guarded by lock_
};

} // namespace

std::optional<KeyringPlace> keyringPlace(const std::shared_ptr<ADMServiceInfo>& serviceInfo, double seconds)
{
    const auto lookUp = LookUps::shared().join(serviceInfo);
    return lookUp ? lookUp->wait(seconds) : std::nullopt;
}

} // namespace dmf::internal
