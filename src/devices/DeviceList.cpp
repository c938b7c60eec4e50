#include <dmf/DeviceList.h>

#include <dmf/ADMBaseDiscovery.h>
#include <dmf/ADMServiceInfo.h>
#include <dmf/DMKeys.h>

#include <algorithm>
#include <array>
#include <mutex>
#include <utility>

#include "devices/DeviceIndex.h"

namespace dmf {

using internal::DeviceIndex;

namespace {

/// What needs no network comes first, then what needs no name to be looked up, then what goes through a print service.
int usualRank(const DeviceWay& way)
{
    const std::array<std::string_view, 5> order{kUSBConnectionType, kSocketConnectionType, kRendezvousConnectionType,
                                                kIPPConnectionType, kLPDConnectionType};
    return static_cast<int>(std::find(order.begin(), order.end(), way.connectionType) - order.begin());
}

} // namespace

struct DeviceList::Private {
    std::shared_ptr<ADMBaseDiscovery> discovery;
    std::shared_ptr<ADMDiscoveryDelegate> reports = std::make_shared<ADMDiscoveryDelegate>();

    mutable std::mutex lock;
    DeviceIndex index;                          // guarded by lock
    std::weak_ptr<DeviceListDelegate> delegate; // guarded by lock
    Order order;                                // guarded by lock

    /// Changes the index by `work` and tells what has changed, with no lock held.
    template <class Work>
    void change(DeviceList& list, const Work& work)
    {
        DeviceIndex::Changes changes;
        std::shared_ptr<DeviceListDelegate> listener;
        {
            std::lock_guard guard(lock);
            changes = work(index);
            listener = delegate.lock();
        }
        if (!listener)
            return;
        for (const auto& change : changes)
            tell(*listener, list, change);
    }

    static void tell(const DeviceListDelegate& listener, DeviceList& list, const DeviceIndex::Change& change)
    {
        switch (change.kind) {
        case DeviceIndex::Change::Kind::added:
            if (const auto report = listener.deviceAdded)
                report(list, change.device);
            break;
        case DeviceIndex::Change::Kind::changed:
            if (const auto report = listener.deviceChanged)
                report(list, change.device, change.earlierName);
            break;
        case DeviceIndex::Change::Kind::removed:
            if (const auto report = listener.deviceRemoved)
                report(list, change.device);
            break;
        }
    }
};

std::vector<DeviceEvidence> Device::sharedEvidence() const
{
    std::vector<DeviceEvidence> all;
    for (const DeviceWay& way : ways)
        all.insert(all.end(), way.evidence.begin(), way.evidence.end());
    std::sort(all.begin(), all.end());
    std::vector<DeviceEvidence> shared;
    for (auto place = all.begin(); (place = std::adjacent_find(place, all.end())) != all.end();) {
        shared.push_back(*place);
        place = std::upper_bound(place, all.end(), shared.back());
    }
    return shared;
}

std::shared_ptr<DeviceList> DeviceList::withChannelNames(const std::vector<std::string>& channelNames)
{
    if (channelNames.empty())
        return nullptr;
    const auto discovery = ADMBaseDiscovery::initWithChannelNames(channelNames);
    const std::shared_ptr<DeviceList> list(new DeviceList(discovery));
    const std::weak_ptr<DeviceList> weak = list;
    list->private_->reports->discoveryDidFindService = [weak](ADMDiscovery&, const auto& service) {
        if (const auto self = weak.lock())
            self->private_->change(*self, [&](DeviceIndex& index) { return index.add(internal::factsOf(service)); });
    };
    list->private_->reports->discoveryDidRemoveService = [weak](ADMDiscovery&, const auto& service) {
        if (const auto self = weak.lock())
            self->private_->change(*self, [&](DeviceIndex& index) {
                const auto facts = internal::factsOf(service);
                return index.remove(facts.way.uri, facts.way.serviceName);
            });
    };
    discovery->setDelegate(list->private_->reports);
    return list;
}

DeviceList::DeviceList(std::shared_ptr<ADMBaseDiscovery> discovery) : private_(std::make_unique<Private>())
{
    private_->discovery = std::move(discovery);
}

DeviceList::~DeviceList() = default;

void DeviceList::setDelegate(const std::shared_ptr<DeviceListDelegate>& delegate)
{
    std::lock_guard guard(private_->lock);
    private_->delegate = delegate;
}

void DeviceList::scheduleInRunLoop(std::shared_ptr<RunLoop> runLoop, std::string_view mode)
{
    private_->discovery->scheduleInRunLoop(std::move(runLoop), mode);
}

void DeviceList::removeFromRunLoop(const std::shared_ptr<RunLoop>& runLoop, std::string_view mode)
{
    private_->discovery->removeFromRunLoop(runLoop, mode);
}

bool DeviceList::start(const std::vector<std::string>& connectionTypes)
{
    const auto& discovery = private_->discovery;
    if (discovery->isStarted() || !discovery->runLoop() || discovery->runLoopModes().empty())
        return false;
    const auto self = shared_from_this(); // a report may release the list
    private_->change(*this, [](DeviceIndex& index) { return index.clear(); });
    if (connectionTypes.empty())
        discovery->scheduleDiscovery();
    else
        discovery->scheduleDiscoveryForConnectionTypes(connectionTypes);
    return true;
}

void DeviceList::stop()
{
    private_->discovery->stop();
}

std::vector<Device> DeviceList::devices() const
{
    std::lock_guard guard(private_->lock);
    return private_->index.devices();
}

std::optional<Device> DeviceList::device(std::string_view name) const
{
    std::lock_guard guard(private_->lock);
    const auto* const found = private_->index.device(name);
    return found ? std::optional(*found) : std::nullopt;
}

std::optional<DeviceList::Choice> DeviceList::bestWay(const Device& device, std::string_view channelName) const
{
    Order order;
    {
        std::lock_guard guard(private_->lock);
        order = private_->order;
    }
    const DeviceWay* best = nullptr;
    int bestRank = 0;
    std::size_t candidates = 0;
    for (const DeviceWay& way : device.ways) {
        if (!way.serviceName.empty() && way.serviceName != channelName)
            continue;
        ++candidates;
        const int rank = order ? order(way, channelName) : usualRank(way);
        if (!best || rank < bestRank) {
            best = &way;
            bestRank = rank;
        }
    }
    if (!best)
        return std::nullopt;
    std::string reason = "the only way to " + std::string(channelName);
    if (candidates > 1)
        reason = best->connectionType + " comes first of " + std::to_string(candidates) + " ways, by " +
                 (order ? "the program's order" : "the order USB, IP, Rendezvous, IPP, LPD, others");
    return Choice{*best, std::move(reason)};
}

void DeviceList::setOrder(Order order)
{
    std::lock_guard guard(private_->lock);
    private_->order = std::move(order);
}

const std::shared_ptr<ADMBaseDiscovery>& DeviceList::discovery() const noexcept
{
    return private_->discovery;
}

} // namespace dmf
