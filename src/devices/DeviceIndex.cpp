#include "devices/DeviceIndex.h"

#include <algorithm>
#include <utility>

namespace dmf::internal {

namespace {

/// Names may stand in scripts, file names and URIs: all but letters, digits and a few marks are escaped, so that no two
/// texts give one name.
std::string escaped(std::string_view text)
{
    constexpr std::string_view kDigits = "0123456789ABCDEF";
    constexpr std::string_view kPlain = "._-:/?&=";
    std::string result;
    for (const char letter : text) {
        const auto byte = static_cast<unsigned char>(letter);
        const bool isLetter = (byte >= 'a' && byte <= 'z') || (byte >= 'A' && byte <= 'Z');
        if (isLetter || (byte >= '0' && byte <= '9') || kPlain.find(letter) != std::string_view::npos)
            result += letter;
        else
            result.append({'%', kDigits[byte >> 4U], kDigits[byte & 0xFU]});
    }
    return result;
}

std::string nameOf(const std::set<DeviceEvidence>& evidence, const std::string& smallestUri)
{
    if (evidence.empty())
        return smallestUri;
    const DeviceEvidence& best = *evidence.begin(); // the kinds stand in the order in which they name a device
    switch (best.kind) {
    case DeviceEvidence::Kind::serialNumber: return escaped(best.text);
    case DeviceEvidence::Kind::macAddress: return "mac:" + best.text;
    case DeviceEvidence::Kind::uuid: return "uuid:" + best.text;
    }
    return smallestUri;
}

/// Back ends write the same in different ways; the choice among them must not depend on who came first.
void takeSmallest(std::string& kept, const std::string& offered)
{
    if (!offered.empty() && (kept.empty() || offered < kept))
        kept = offered;
}

bool isSame(const Device& left, const Device& right)
{
    const auto isSameWay = [](const DeviceWay& one, const DeviceWay& other) {
        return one.uri == other.uri && one.serviceName == other.serviceName && one.evidence == other.evidence;
    };
    return left.name == right.name && left.vendor == right.vendor && left.model == right.model &&
           left.serialNumber == right.serialNumber && left.suspicion == right.suspicion &&
           std::equal(left.ways.begin(), left.ways.end(), right.ways.begin(), right.ways.end(), isSameWay);
}

} // namespace

DeviceIndex::Changes DeviceIndex::add(DeviceFacts facts)
{
    const ServiceKey key(facts.way.uri, facts.way.serviceName);
    Work work;
    erase(key, work);
    insert(key, std::move(facts), work);
    return finish(std::move(work));
}

DeviceIndex::Changes DeviceIndex::remove(const std::string& uri, const std::string& serviceName)
{
    Work work;
    erase({uri, serviceName}, work);
    return finish(std::move(work));
}

DeviceIndex::Changes DeviceIndex::clear()
{
    Work work;
    for (const auto& [name, id] : byName_)
        work.removed.push_back({Change::Kind::removed, std::move(listed_.at(id).told), {}});
    services_.clear();
    holders_.clear();
    listed_.clear();
    byName_.clear();
    bySerial_.clear();
    return std::move(work.removed);
}

std::vector<Device> DeviceIndex::devices() const
{
    std::vector<Device> all;
    all.reserve(byName_.size());
    for (const auto& [name, id] : byName_)
        all.push_back(listed_.at(id).told);
    return all;
}

const Device* DeviceIndex::device(std::string_view name) const
{
    const auto place = byName_.find(name);
    return place == byName_.end() ? nullptr : &listed_.at(place->second).told;
}

/// The services that are of the same device as this one: those that share evidence, and those under its URI.
std::set<DeviceIndex::ServiceKey> DeviceIndex::related(const ServiceKey& key, const DeviceFacts& facts) const
{
    std::set<ServiceKey> found;
    for (const DeviceEvidence& evidence : facts.way.evidence) {
        if (const auto holders = holders_.find(evidence); holders != holders_.end())
            found.insert(holders->second.begin(), holders->second.end());
    }
    for (auto place = services_.lower_bound({key.first, {}}); place != services_.end(); ++place) {
        if (place->first.first != key.first)
            break;
        found.insert(place->first);
    }
    return found;
}

/// The service joins the first device that has something in common with it, and brings the others that have together.
void DeviceIndex::insert(const ServiceKey& key, DeviceFacts facts, Work& work)
{
    DeviceId home = 0;
    for (const ServiceKey& other : related(key, facts)) {
        const DeviceId owner = services_.at(other).device;
        if (home == 0)
            home = owner;
        else if (owner != home)
            join(home, owner, work);
    }
    if (home == 0)
        home = nextId_++;
    for (const DeviceEvidence& evidence : facts.way.evidence)
        holders_[evidence].insert(key);
    listed_[home].services.insert(key);
    services_.insert_or_assign(key, Entry{std::move(facts), home});
    work.touched.insert(home);
}

void DeviceIndex::erase(const ServiceKey& key, Work& work)
{
    const auto place = services_.find(key);
    if (place == services_.end())
        return;
    for (const DeviceEvidence& evidence : place->second.facts.way.evidence) {
        const auto holders = holders_.find(evidence);
        holders->second.erase(key);
        if (holders->second.empty())
            holders_.erase(holders);
    }
    const DeviceId id = place->second.device;
    services_.erase(place);
    listed_.at(id).services.erase(key);
    separate(id, work);
}

/// After a service has gone: what no evidence holds together any more becomes devices of their own. The part with the
/// smallest service stays the device that it was.
void DeviceIndex::separate(DeviceId id, Work& work)
{
    Listed& listed = listed_.at(id);
    if (listed.services.empty())
        return drop(id, work);
    work.touched.insert(id);
    std::set<ServiceKey> left = listed.services;
    for (DeviceId part = id; !left.empty(); part = nextId_++) {
        std::vector<ServiceKey> reached{*left.begin()};
        left.erase(left.begin());
        for (std::size_t index = 0; index < reached.size(); ++index) {
            for (const ServiceKey& other : related(reached[index], services_.at(reached[index]).facts)) {
                if (left.erase(other) != 0)
                    reached.push_back(other);
            }
        }
        if (part != id) {
            for (const ServiceKey& key : reached) {
                listed_.at(id).services.erase(key);
                services_.at(key).device = part;
            }
            listed_[part].services.insert(reached.begin(), reached.end());
            work.touched.insert(part);
        }
    }
}

void DeviceIndex::join(DeviceId into, DeviceId from, Work& work)
{
    std::set<ServiceKey> moved = std::move(listed_.at(from).services);
    for (const ServiceKey& key : moved)
        services_.at(key).device = into;
    listed_.at(into).services.merge(moved);
    drop(from, work);
}

void DeviceIndex::drop(DeviceId id, Work& work)
{
    const auto place = listed_.find(id);
    work.touched.erase(id);
    if (place->second.isTold) {
        forgetSerial(place->second.told, id, work);
        byName_.erase(place->second.told.name);
        work.removed.push_back({Change::Kind::removed, std::move(place->second.told), {}});
    }
    listed_.erase(place);
}

/// Others with the same serial number have to be told of it, or that it has gone.
void DeviceIndex::noteSerial(DeviceId id, Work& work)
{
    const std::string& serial = listed_.at(id).told.serialNumber;
    if (serial.empty())
        return;
    auto& same = bySerial_[serial];
    if (same.insert(id).second && same.size() > 1)
        work.touched.insert(same.begin(), same.end());
}

void DeviceIndex::forgetSerial(const Device& device, DeviceId id, Work& work)
{
    const auto same = bySerial_.find(device.serialNumber);
    if (same == bySerial_.end() || same->second.erase(id) == 0)
        return;
    work.touched.insert(same->second.begin(), same->second.end());
    if (same->second.empty())
        bySerial_.erase(same);
}

Device DeviceIndex::describe(const Listed& listed) const
{
    Device device;
    std::set<DeviceEvidence> evidence;
    for (const ServiceKey& key : listed.services) {
        const DeviceFacts& facts = services_.at(key).facts;
        takeSmallest(device.vendor, facts.vendor);
        takeSmallest(device.model, facts.model);
        takeSmallest(device.serialNumber, facts.serialNumber);
        evidence.insert(facts.way.evidence.begin(), facts.way.evidence.end());
        device.ways.push_back(facts.way);
    }
    device.name = nameOf(evidence, device.ways.front().uri);
    return device;
}

std::string DeviceIndex::suspicionOf(const Device& device) const
{
    const auto same = bySerial_.find(device.serialNumber);
    if (same == bySerial_.end() || same->second.size() < 2)
        return {};
    return std::to_string(same->second.size()) + " devices say that their serial number is " + device.serialNumber;
}

/// Tells what has become of the devices that were touched: what is gone first, so that no name stands for two.
DeviceIndex::Changes DeviceIndex::finish(Work work)
{
    std::vector<std::pair<DeviceId, Device>> described;
    std::set<DeviceId> done;
    // A serial number that comes or goes touches others; theirs does not change, so this ends.
    while (done.size() != work.touched.size()) {
        for (const DeviceId id : std::set<DeviceId>(work.touched)) {
            if (!done.insert(id).second)
                continue;
            Device device = describe(listed_.at(id));
            Listed& listed = listed_.at(id);
            if (listed.told.serialNumber != device.serialNumber)
                forgetSerial(listed.told, id, work);
            std::string earlier = std::exchange(listed.told.serialNumber, device.serialNumber);
            noteSerial(id, work);
            listed.told.serialNumber = std::move(earlier);
            described.emplace_back(id, std::move(device));
        }
    }
    Changes changes = std::move(work.removed);
    for (const auto& [id, device] : described) {
        if (const auto place = byName_.find(listed_.at(id).told.name); place != byName_.end() && place->second == id)
            byName_.erase(place);
    }
    for (auto& [id, device] : described) {
        Listed& listed = listed_.at(id);
        device.suspicion = suspicionOf(device);
        byName_[device.name] = id;
        const bool isNew = !std::exchange(listed.isTold, true);
        if (!isNew && isSame(listed.told, device))
            continue;
        std::string earlierName = isNew ? std::string() : listed.told.name;
        listed.told = std::move(device);
        changes.push_back({isNew ? Change::Kind::added : Change::Kind::changed, listed.told, std::move(earlierName)});
    }
    return changes;
}

} // namespace dmf::internal
