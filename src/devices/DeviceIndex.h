#pragma once

#include <dmf/DeviceList.h>

#include <map>
#include <set>
#include <string>
#include <unordered_map>
#include <vector>

#include "devices/DeviceFacts.h"

namespace dmf::internal {

/// Brings services together by device. What is listed depends on the services that are there and on nothing else: not
/// on the order in which they came, nor on those that went. Reentrant.
///
/// A service costs what the device costs that it belongs to, and nothing of the other devices.
/// Exported for the tests; its header is not installed.
class DMF_EXPORT DeviceIndex final {
public:
    struct Change {
        enum class Kind : std::uint8_t { added, changed, removed };
        Kind kind = Kind::added;
        Device device;           ///< as it is now; of a removed one, as it was
        std::string earlierName; ///< of a changed one
    };
    using Changes = std::vector<Change>;

    /// A service whose URI and channel are there already replaces that one.
    Changes add(DeviceFacts facts);
    /// Does nothing for a service that is not there.
    Changes remove(const std::string& uri, const std::string& serviceName);
    /// Removes all.
    Changes clear();

    [[nodiscard]] std::vector<Device> devices() const;
    [[nodiscard]] const Device* device(std::string_view name) const;

private:
    using ServiceKey = std::pair<std::string, std::string>; // URI and channel
    using DeviceId = std::uint64_t;
    struct Entry {
        DeviceFacts facts;
        DeviceId device = 0;
    };
    struct Listed {
        std::set<ServiceKey> services;
        Device told;         // as the client knows it
        bool isTold = false; // a new one is not
    };
    /// Which devices have to be told anew, and what is gone.
    struct Work {
        std::set<DeviceId> touched;
        Changes removed;
    };

    [[nodiscard]] std::set<ServiceKey> related(const ServiceKey& key, const DeviceFacts& facts) const;
    void insert(const ServiceKey& key, DeviceFacts facts, Work& work);
    void erase(const ServiceKey& key, Work& work);
    void separate(DeviceId id, Work& work);
    void join(DeviceId into, DeviceId from, Work& work);
    void drop(DeviceId id, Work& work);
    void noteSerial(DeviceId id, Work& work);
    void forgetSerial(const Device& device, DeviceId id, Work& work);
    [[nodiscard]] Device describe(const Listed& listed) const;
    [[nodiscard]] std::string suspicionOf(const Device& device) const;
    Changes finish(Work work);

    std::map<ServiceKey, Entry> services_;
    std::map<DeviceEvidence, std::set<ServiceKey>> holders_;
    std::unordered_map<DeviceId, Listed> listed_;
    std::map<std::string, DeviceId, std::less<>> byName_;
    std::unordered_map<std::string, std::set<DeviceId>> bySerial_; // whatever their vendor and model
    DeviceId nextId_ = 1;
};

} // namespace dmf::internal
