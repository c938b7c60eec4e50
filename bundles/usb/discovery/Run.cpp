#include "Run.h"

#include <cstdio>
#include <stdexcept>
#include <utility>
#include <vector>

#include <dmf/ADMDeviceBase.h>
#include <dmf/ADMServiceInfoImp.h>
#include <dmf/DMKeys.h>
#include <dmf/DMLog.h>

namespace dmf::usb {

namespace {
/// Keeps the discovery thread. It is let go on that thread, wherever the last holder goes: elsewhere that would wait
/// for the thread's end.
std::shared_ptr<void> usedThread()
{
    if (!ADMServiceDiscoveryBase::retainThread())
        return nullptr;
    static char something;
    return {&something, [](void*) {
                if (!ADMServiceDiscoveryBase::performAction([] { ADMServiceDiscoveryBase::releaseThread(); }))
                    ADMServiceDiscoveryBase::releaseThread();
            }};
}

std::string hexadecimal(unsigned number)
{
    char text[8];
    std::snprintf(text, sizeof text, "%04x", number & 0xFFFFU);
    return text;
}

const char* wordFor(Access::State state)
{
    switch (state) {
    case Access::State::open: return "open";
    case Access::State::noNode: return "missing";
    case Access::State::noPermission: return "permission";
    case Access::State::claimed: return "claimed";
    }
    return "";
}
} // namespace

void describe(ADMServiceInfoImp& service, const Sighting& sighting)
{
    const auto& device = sighting.device;
    const auto told = sighting.deviceId ? namesIn(*sighting.deviceId) : Names();
    Dictionary params{{std::string(kUSBVendorIDParam), hexadecimal(device.descriptors.vendorId)},
                      {std::string(kUSBProductIDParam), hexadecimal(device.descriptors.productId)},
                      {std::string(kUSBLocationIDParam), device.place},
                      {"Access", wordFor(device.access.state)}};
    params.set("AccessAdvice", device.access.explanation(device.node));
    if (told.serialNumber)
        params.set(kSerialNumberParam, *told.serialNumber);
    else if (sighting.identity && sighting.identity->serialNumberIsPort)
        params.set(kSerialNumberKindParam, kPortKind);
    service.setConnectionParams(std::move(params));
    // A vendor that the device ID tells and that is not accepted would not make it another device.
    if (told.vendor && ADMDeviceBase::isSupportedVendorName(*told.vendor))
        service.setVendorName(told.vendor);
    if (told.model)
        service.setModelName(told.model);
    if (told.description)
        service.setDeviceName(told.description);
}

Run::Run(std::weak_ptr<ADMServiceDiscoveryBase> discovery, std::string channel)
    : discovery_(std::move(discovery)), channel_(std::move(channel))
{
}

bool Run::begin()
{
    std::shared_ptr<Watch> watch;
    try {
        watch = Watch::shared();
    } catch (const std::runtime_error& error) {
        DMFLog("errors", "Discovery: USB: %@", error);
        return false;
    }
    {
        std::lock_guard guard(lock_);
        watch_ = watch;
    }
    thread_ = usedThread();
    return thread_ && ADMServiceDiscoveryBase::performAction([self = shared_from_this(), watch] {
               if (!self->isEnded_)
                   self->listening_ = watch->listen([weak = self->weak_from_this()] {
                       if (const auto run = weak.lock())
                           run->viewChanged();
                   });
           });
}

void Run::end()
{
    isEnded_ = true;
    {
        std::shared_ptr<Watch> watch; // goes without the lock
        std::lock_guard guard(lock_);
        std::swap(watch, watch_);
    }
    ADMServiceDiscoveryBase::performAction([self = shared_from_this()] {
        self->listening_ = nullptr;
        self->reports_.clear();
        self->thread_ = nullptr;
    });
}

Dictionary Run::trouble() const
{
    std::lock_guard guard(lock_);
    const auto view = watch_ ? watch_->view() : nullptr;
    return view ? view->trouble : Dictionary();
}

/// On the watching thread. Of several changes in a row the discovery thread sees the last.
void Run::viewChanged()
{
    if (!isEnded_ && !isUpdateUnderWay_.exchange(true))
        ADMServiceDiscoveryBase::performAction([self = shared_from_this()] { self->update(); });
}

bool Run::serves(const Sighting& sighting) const
{
    const auto* const configuration = sighting.device.configuration();
    return sighting.identity && configuration && chooseInterface(*configuration, channel_, sighting.rows);
}

/// The client may stop, or let go of, everything from inside a report: nothing is touched after one that was not looked
/// for anew.
void Run::update()
{
    isUpdateUnderWay_ = false;
    std::shared_ptr<const View> view;
    {
        std::lock_guard guard(lock_);
        view = watch_ ? watch_->view() : nullptr;
    }
    if (!view || isEnded_)
        return;
    std::map<std::uint64_t, std::shared_ptr<const Sighting>> present;
    for (const auto& [place, sighting] : view->devices)
        if (serves(*sighting))
            present.emplace(sighting->number, sighting);

    std::vector<std::shared_ptr<ADMServiceInfoImp>> lost;
    std::erase_if(reports_, [&](const auto& each) {
        if (present.contains(each.first))
            return false;
        lost.push_back(each.second.service);
        return true;
    });
    for (const auto& service : lost)
        announce(service, true);
    for (const auto& [number, sighting] : present) {
        if (isEnded_)
            return;
        const auto known = reports_.find(number);
        if (known == reports_.end())
            find(sighting);
        else if (std::exchange(known->second.sighting, sighting) != sighting && known->second.service)
            describe(*known->second.service, *sighting);
    }
}

void Run::find(const std::shared_ptr<const Sighting>& sighting)
{
    const auto uri = sighting->identity->uri();
    const auto service =
        uri ? ADMServiceInfoImp::initWithURI(
                  *uri, std::string(channel_ == "Storage" ? kStorageDeviceClass
                                                          : ADMServiceInfoImp::deviceClassForServiceName(channel_)))
            : nullptr;
    if (service)
        describe(*service, *sighting);
    else
        DMFLog("debug", "Discovery: no URI can name the USB device at %@", sighting->device.place);
    reports_[sighting->number] = {service, sighting};
    announce(service, false);
}

void Run::announce(const std::shared_ptr<ADMServiceInfoImp>& service, bool isLost)
{
    const auto discovery = discovery_.lock();
    if (service && discovery && !isEnded_)
        discovery->announceService(service, isLost);
}

} // namespace dmf::usb
