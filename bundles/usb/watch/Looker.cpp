#include "Looker.h"

#include <algorithm>
#include <mutex>

#include <dmf/DMKeys.h>
#include <dmf/DMLog.h>

#include "tree/DeviceTree.h"

namespace dmf::usb {

namespace {
constexpr int kWalkInterval = 2000; // milliseconds
constexpr std::size_t kRememberedDevices = 1024;

/// The same for every plugging in of a device that can be told from others of its kind.
std::string keyOf(const AttachedDevice& device)
{
    return std::to_string(device.descriptors.vendorId) + ":" + std::to_string(device.descriptors.productId) + ":" +
           device.names.serialNumber.value_or("@" + device.place);
}

/// What the devices of this process's life were called whose names came from their device IDs: one whose ID fails the
/// next time is still the same device.
class Memory {
public:
    static Memory& shared()
    {
        static auto* const memory = new Memory;
        return *memory;
    }
    void remember(const AttachedDevice& device, const Identity& identity)
    {
        std::lock_guard guard(lock_);
        if (identities_.size() < kRememberedDevices)
            identities_.emplace(keyOf(device), identity);
    }
    std::optional<Identity> recall(const AttachedDevice& device)
    {
        std::lock_guard guard(lock_);
        const auto found = identities_.find(keyOf(device));
        return found != identities_.end() ? std::optional(found->second) : std::nullopt;
    }

private:
    std::mutex lock_;
    std::map<std::string, Identity> identities_; // guarded by lock_
};
} // namespace

void Looker::run()
{
    look(nullptr);
    while (!state_.isEnding()) {
        const bool isSettled = events_.isOpen() && shownTrouble_.empty();
        state_.wait(events_.descriptor(), isSettled ? -1 : kWalkInterval);
        if (state_.isEnding())
            return;
        takeAnswers();
        bool all = !isSettled;
        const auto changed = takeEvents(all);
        if (all)
            look(nullptr);
        else if (!changed.empty())
            look(&changed);
        else
            showIfChanged();
    }
}

Looker::Places Looker::takeEvents(bool& all)
{
    Places changed;
    if (!events_.isOpen())
        return changed;
    bool wereLost = false;
    for (const auto& event : events_.take(wereLost)) {
        changed.insert(event.place);
        const auto known = devices_.find(event.place);
        if (!event.isRemoval) {
            departed_.erase(event.place);
        } else if (known != devices_.end()) {
            // The tree may show it for a moment longer; it is not another one for that.
            departed_[event.place] = known->second->device.address;
            forget(event.place);
        }
    }
    all = all || wereLost;
    return changed;
}

void Looker::look(const Places* changed)
{
    const auto places = attachedPlaces();
    hasTree_ = places.has_value();
    const Places present(places ? Places(places->begin(), places->end()) : Places());
    for (auto entry = devices_.begin(); entry != devices_.end();) {
        const auto place = (entry++)->first;
        if (!present.contains(place))
            forget(place);
    }
    std::erase_if(departed_, [&](const auto& each) { return !present.contains(each.first); });
    for (const auto& place : present)
        if (!changed || changed->contains(place) || !devices_.contains(place))
            readPlace(place);
    showIfChanged();
}

void Looker::readPlace(const std::string& place)
{
    auto device = readDevice(place);
    if (!device) {
        forget(place); // going, or just coming: then the next event tells
        return;
    }
    const auto gone = departed_.find(place);
    if (gone != departed_.end() && gone->second == device->address)
        return;
    meet(std::move(*device));
}

void Looker::meet(AttachedDevice device)
{
    const auto known = devices_.find(device.place);
    Sighting sighting;
    if (known != devices_.end() && known->second->device.isSameAttachment(device)) {
        if (known->second->device == device)
            return;
        sighting = *known->second;
    } else {
        forget(device.place);
        sighting.number = ++lastNumber_;
    }
    const auto place = device.place;
    sighting.device = std::move(device);
    if (sighting.device.kernelDeviceId && !sighting.deviceId)
        sighting.deviceId = sighting.device.kernelDeviceId;
    askIfFree(sighting);
    complete(sighting);
    devices_[place] = std::make_shared<const Sighting>(std::move(sighting));
}

void Looker::forget(const std::string& place)
{
    const auto known = devices_.find(place);
    if (known == devices_.end())
        return;
    asked_.erase(known->second->number);
    devices_.erase(known);
}

/// Once for every plugging in, and only while nobody uses the interface: a question in the middle of somebody's job
/// would be taken for a part of it by some devices.
void Looker::askIfFree(Sighting& sighting)
{
    const auto* const configuration = sighting.device.configuration();
    const auto* const interface = configuration ? printerInterface(*configuration) : nullptr;
    if (!interface || sighting.deviceId || asked_.contains(sighting.number) ||
        sighting.device.access.state != Access::State::open || !sighting.device.drivers.contains(interface->number) ||
        !sighting.device.driverOf(interface->number).empty())
        return;
    asked_.insert(sighting.number);
    state_.ask({sighting.number, sighting.device.node, sighting.device.configurationIndex(), *interface});
}

void Looker::takeAnswers()
{
    for (auto& answer : state_.takeAnswers())
        for (auto& [place, known] : devices_) {
            if (known->number != answer.sighting || !answer.deviceId)
                continue;
            auto sighting = *known;
            sighting.deviceId = std::move(answer.deviceId);
            complete(sighting);
            known = std::make_shared<const Sighting>(std::move(sighting));
            break;
        }
}

/// What follows from what is known by now.
void Looker::complete(Sighting& sighting)
{
    if (!sighting.identity) {
        auto identity = Identity::of(sighting.device, std::nullopt);
        if (!identity && sighting.deviceId) {
            identity = Identity::of(sighting.device, sighting.deviceId);
            if (identity)
                Memory::shared().remember(sighting.device, *identity);
        }
        if (!identity)
            identity = Memory::shared().recall(sighting.device);
        if (identity)
            sighting.identity = withoutDouble(sighting, std::move(*identity));
    }
    const auto told = sighting.deviceId ? namesIn(*sighting.deviceId).model : std::nullopt;
    if (const auto& model = told ? told : sighting.device.names.model; sighting.identity && model)
        sighting.rows = transportRowsOfModel(*model);
}

/// Some makers give all their devices one serial number.
Identity Looker::withoutDouble(const Sighting& sighting, Identity identity) const
{
    const bool isTaken = std::any_of(devices_.begin(), devices_.end(), [&](const auto& each) {
        return each.second->number != sighting.number && each.second->identity == identity;
    });
    return isTaken ? identity.atPort(sighting.device.place) : identity;
}

void Looker::showIfChanged()
{
    auto trouble = this->trouble();
    if (hasShown_ && shown_ == devices_ && shownTrouble_ == trouble)
        return;
    if (!trouble.empty() && trouble != shownTrouble_)
        DMFLog("warnings", "Discovery: USB: %@", trouble.string(kDMErrorDescription));
    hasShown_ = true;
    shown_ = devices_;
    shownTrouble_ = trouble;
    state_.show(std::make_shared<const View>(View{devices_, std::move(trouble)}));
}

Dictionary Looker::trouble() const
{
    std::string description;
    auto code = WatchTrouble::noTree;
    const auto add = [&](WatchTrouble each, const std::string& text) {
        if (description.empty())
            code = each;
        description += (description.empty() ? "" : " ") + text;
    };
    if (!hasTree_)
        add(WatchTrouble::noTree, "This machine shows no tree of USB devices.");
    else if (!events_.isOpen())
        add(WatchTrouble::noEvents,
            "udev does not run here: what is plugged in or out is seen up to two seconds later.");
    for (const auto& [place, sighting] : devices_)
        if (sighting->identity && sighting->device.access.state != Access::State::open)
            add(WatchTrouble::noAccess, sighting->identity->vendor + " " + sighting->identity->model + ": " +
                                            sighting->device.access.explanation(sighting->device.node) + ".");
    if (description.empty())
        return {};
    return {{std::string(kDMErrorDescription), description},
            {std::string(kDMErrorCode), static_cast<std::int32_t>(code)}};
}

} // namespace dmf::usb
