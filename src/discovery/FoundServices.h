#pragma once

#include <dmf/ADMServiceInfo.h>

#include <cstdint>
#include <memory>
#include <unordered_map>
#include <vector>

namespace dmf::internal {

/// A set of services by their own equality. Reentrant.
class FoundServices final {
public:
    FoundServices() { services_.reserve(kUsualCount); }

    void add(const std::shared_ptr<ADMServiceInfo>& service)
    {
        const auto hash = service->hash();
        if (find(*service, hash) == services_.end())
            services_.emplace(hash, service);
    }
    void remove(ADMServiceInfo& service)
    {
        const auto place = find(service, service.hash());
        if (place != services_.end())
            services_.erase(place);
    }
    [[nodiscard]] std::vector<std::shared_ptr<ADMServiceInfo>> all() const
    {
        std::vector<std::shared_ptr<ADMServiceInfo>> found;
        found.reserve(services_.size());
        for (const auto& [hash, service] : services_)
            found.push_back(service);
        return found;
    }

private:
    using Map = std::unordered_multimap<std::uint32_t, std::shared_ptr<ADMServiceInfo>>;
    static constexpr std::size_t kUsualCount = 20;

    [[nodiscard]] Map::iterator find(ADMServiceInfo& service, std::uint32_t hash)
    {
        auto [place, end] = services_.equal_range(hash);
        while (place != end && !place->second->isEqual(service))
            ++place;
        return place == end ? services_.end() : place;
    }

    Map services_;
};

} // namespace dmf::internal
