#include "EmulatedPrinter.h"

#include <linux/usbdevice_fs.h>
#include <sys/ioctl.h>
#include <umockdev.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

namespace {
/// What libusb takes for "nothing has ended yet" comes at once from the kernel, after a wait for the descriptor. The
/// emulated descriptor is always ready, so the wait is here.
constexpr std::chrono::milliseconds kNothingYet{1};

std::uint8_t low(std::size_t number)
{
    return static_cast<std::uint8_t>(number);
}
std::uint8_t high(std::size_t number)
{
    return static_cast<std::uint8_t>(number >> 8);
}

template <class Struct>
Struct* in(UMockdevIoctlData* data)
{
    return reinterpret_cast<Struct*>(data->data);
}

struct Pending {
    UMockdevIoctlClient* client;
    int result, error;
};
int completeLater(void* pending)
{
    const std::unique_ptr<Pending> held(static_cast<Pending*>(pending));
    umockdev_ioctl_client_complete(held->client, held->result, held->error);
    g_object_unref(held->client);
    return G_SOURCE_REMOVE;
}
} // namespace

std::vector<std::uint8_t> EmulatedSpec::descriptorBytes() const
{
    if (descriptors)
        return *descriptors;
    std::vector<std::uint8_t> body;
    std::size_t count = 0;
    for (const auto& each : interfaces) {
        count += each.alternate == 0;
        body.insert(body.end(),
                    {9, 4, low(static_cast<std::size_t>(each.number)), low(static_cast<std::size_t>(each.alternate)),
                     low(each.endpoints.size()), low(static_cast<std::size_t>(each.classCode)),
                     low(static_cast<std::size_t>(each.subclass)), low(static_cast<std::size_t>(each.protocol)), 0});
        for (const auto& endpoint : each.endpoints)
            body.insert(body.end(),
                        {7, 5, endpoint.address, 2, low(endpoint.maxPacketSize), high(endpoint.maxPacketSize), 0});
    }
    const auto vendor = static_cast<std::size_t>(vendorId), model = static_cast<std::size_t>(productId);
    std::vector<std::uint8_t> bytes{18,           1,          0,           2, 0, 0, 0, 64, low(vendor),
                                    high(vendor), low(model), high(model), 0, 1, 1, 2, 3,  1};
    const auto total = body.size() + 9;
    bytes.insert(bytes.end(), {9, 2, low(total), high(total), low(count), 1, 0, 0xC0, 0});
    bytes.insert(bytes.end(), body.begin(), body.end());
    return bytes;
}

/// One transfer that was handed in and not yet handed back.
struct EmulatedPrinter::Transfer {
    UMockdevIoctlData* request = nullptr;
    UMockdevIoctlData* buffer = nullptr;
    std::size_t done = 0;
    bool hasEnded = false;
    std::chrono::steady_clock::time_point notBefore{};

    ~Transfer()
    {
        g_clear_object(&request);
        g_clear_object(&buffer);
    }
    usbdevfs_urb& urb() const { return *in<usbdevfs_urb>(request); }
    void end(int status)
    {
        urb().status = status;
        urb().actual_length = static_cast<int>(done);
        hasEnded = true;
    }
};

EmulatedPrinter::EmulatedPrinter(EmulatedSpec spec, std::string driverFolder)
    : spec_(std::move(spec)), driverFolder_(std::move(driverFolder)), handler_(umockdev_ioctl_base_new())
{
    answerDeviceId("MFG:" + spec_.manufacturer + ";MDL:" + spec_.product + ";CLS:PRINTER;");
    for (const auto& each : spec_.interfaces)
        drivers_[each.number] = spec_.driver;
    g_signal_connect(handler_, "handle-ioctl", G_CALLBACK(&handle), this);
}

EmulatedPrinter::~EmulatedPrinter()
{
    g_signal_handlers_disconnect_matched(handler_, G_SIGNAL_MATCH_DATA, 0, 0, nullptr, nullptr, this);
    g_object_unref(handler_);
}

void EmulatedPrinter::answerDeviceId(const std::string& text)
{
    std::vector<std::uint8_t> answer{high(text.size() + 2), low(text.size() + 2)};
    answer.insert(answer.end(), text.begin(), text.end());
    answerDeviceIdBytes(std::move(answer));
}

void EmulatedPrinter::answerDeviceIdBytes(std::vector<std::uint8_t> answer)
{
    std::lock_guard guard(lock_);
    deviceId_ = std::move(answer);
    ignoresDeviceId_ = false;
}

void EmulatedPrinter::refuseDeviceId()
{
    std::lock_guard guard(lock_);
    deviceId_ = std::nullopt;
    ignoresDeviceId_ = false;
}

void EmulatedPrinter::ignoreDeviceId()
{
    std::lock_guard guard(lock_);
    ignoresDeviceId_ = true;
}

void EmulatedPrinter::setPortStatus(std::uint8_t status)
{
    std::lock_guard guard(lock_);
    portStatus_ = status;
}

void EmulatedPrinter::takeAtMost(std::size_t bytes)
{
    std::lock_guard guard(lock_);
    takeLimit_ = bytes;
}

void EmulatedPrinter::takeSlowly(std::chrono::microseconds each)
{
    std::lock_guard guard(lock_);
    slowness_ = each;
}

void EmulatedPrinter::stallAfter(std::size_t bytes, int times)
{
    std::lock_guard guard(lock_);
    stallAt_ = bytes;
    stallsLeft_ = times;
}

void EmulatedPrinter::unplugAfter(std::size_t bytes)
{
    std::lock_guard guard(lock_);
    unplugAt_ = bytes;
}

void EmulatedPrinter::send(const std::string& bytes)
{
    std::lock_guard guard(lock_);
    toSend_ += bytes;
}

void EmulatedPrinter::echo()
{
    std::lock_guard guard(lock_);
    echoes_ = true;
}

void EmulatedPrinter::setClaimedByOther(bool isClaimed)
{
    std::lock_guard guard(lock_);
    isClaimedByOther_ = isClaimed;
    for (const auto& each : spec_.interfaces)
        setDriver(each.number, isClaimed ? "usbfs" : spec_.driver);
}

void EmulatedPrinter::pullOut()
{
    std::lock_guard guard(lock_);
    isGone_ = true;
}

std::string EmulatedPrinter::taken() const
{
    std::lock_guard guard(lock_);
    return taken_;
}

int EmulatedPrinter::count(const std::string& event) const
{
    std::lock_guard guard(lock_);
    const auto found = counts_.find(event);
    return found != counts_.end() ? found->second : 0;
}

std::string EmulatedPrinter::driverOf(int interface) const
{
    std::lock_guard guard(lock_);
    return drivers_.at(interface);
}

int EmulatedPrinter::transfersUnderWay() const
{
    std::lock_guard guard(lock_);
    return static_cast<int>(transfers_.size());
}

void EmulatedPrinter::setDriver(int interface, const std::string& driver)
{
    drivers_[interface] = driver;
    const auto link = driverFolder_ + "/" + spec_.place + ":1." + std::to_string(interface) + "/driver";
    (void)::unlink(link.c_str());
    if (!driver.empty())
        (void)!::symlink(("../../../../../../bus/usb/drivers/" + driver).c_str(), link.c_str());
}

int EmulatedPrinter::handle(UMockdevIoctlBase*, UMockdevIoctlClient* client, void* self)
{
    const auto request = umockdev_ioctl_client_get_request(client);
    auto* const argument = umockdev_ioctl_client_get_arg(client);
    auto* const printer = static_cast<EmulatedPrinter*>(self);
    GError* error = nullptr;
    auto* data = _IOC_SIZE(request) ? umockdev_ioctl_data_resolve(argument, 0, _IOC_SIZE(request), &error) : nullptr;
    g_clear_error(&error);
    Reply reply{-1, EFAULT};
    if (data || !_IOC_SIZE(request)) {
        std::lock_guard guard(printer->lock_);
        reply = printer->answer(request, argument, data);
    }
    if (reply.delay.count() == 0) {
        umockdev_ioctl_client_complete(client, reply.result, reply.error);
    } else {
        auto* const source = g_timeout_source_new(static_cast<unsigned>(reply.delay.count()));
        g_source_set_callback(
            source, &completeLater,
            new Pending{static_cast<UMockdevIoctlClient*>(g_object_ref(client)), reply.result, reply.error}, nullptr);
        g_source_attach(source, g_main_context_get_thread_default());
        g_source_unref(source);
    }
    g_clear_object(&data);
    return 1;
}

EmulatedPrinter::Reply EmulatedPrinter::answer(unsigned long request, UMockdevIoctlData* argument,
                                               UMockdevIoctlData* data)
{
    if (request == USBDEVFS_REAPURB || request == USBDEVFS_REAPURBNDELAY)
        return reap(data);
    if (request == USBDEVFS_DISCARDURB)
        return discard(argument);
    if (isGone_)
        return {-1, ENODEV};
    switch (request) {
    case USBDEVFS_GET_CAPABILITIES:
        *in<std::uint32_t>(data) = USBDEVFS_CAP_ZERO_PACKET | USBDEVFS_CAP_BULK_CONTINUATION |
                                   USBDEVFS_CAP_NO_PACKET_SIZE_LIM | USBDEVFS_CAP_REAP_AFTER_DISCONNECT;
        return {};
    case USBDEVFS_CLAIMINTERFACE: return claim(*in<unsigned>(data), false);
    case USBDEVFS_DISCONNECT_CLAIM: return claim(in<usbdevfs_disconnect_claim>(data)->interface, true);
    case USBDEVFS_RELEASEINTERFACE: return release(*in<unsigned>(data));
    case USBDEVFS_IOCTL: return attachOrDetach(data);
    case USBDEVFS_GETDRIVER: {
        auto& asked = *in<usbdevfs_getdriver>(data);
        const auto& driver = drivers_[static_cast<int>(asked.interface)];
        if (driver.empty())
            return {-1, ENODATA};
        std::strncpy(asked.driver, driver.c_str(), sizeof asked.driver - 1);
        return {};
    }
    case USBDEVFS_SETINTERFACE: ++counts_["alternate"]; return {};
    case USBDEVFS_SETCONFIGURATION: ++counts_["configuration"]; return {};
    case USBDEVFS_CLEAR_HALT:
        ++counts_["clear-halt"];
        isHalted_ = false;
        return {};
    case USBDEVFS_RESET: ++counts_["device-reset"]; return {};
    case USBDEVFS_CONTROL: return control(data);
    case USBDEVFS_SUBMITURB: return submit(data);
    default: return {-1, ENOTTY};
    }
}

EmulatedPrinter::Reply EmulatedPrinter::claim(unsigned interface, bool detaches)
{
    const auto own = drivers_.find(static_cast<int>(interface));
    if (own == drivers_.end())
        return {-1, EINVAL};
    if (isClaimedByOther_ || own->second == "usbfs" || (!detaches && !own->second.empty()))
        return {-1, EBUSY};
    counts_["detach"] += !own->second.empty();
    ++counts_["claim"];
    setDriver(own->first, "usbfs");
    return {};
}

EmulatedPrinter::Reply EmulatedPrinter::release(unsigned interface)
{
    ++counts_["release"];
    setDriver(static_cast<int>(interface), "");
    return {};
}

EmulatedPrinter::Reply EmulatedPrinter::attachOrDetach(UMockdevIoctlData* data)
{
    const auto& asked = *in<usbdevfs_ioctl>(data);
    auto& driver = drivers_[asked.ifno];
    if (asked.ioctl_code == static_cast<int>(USBDEVFS_CONNECT)) {
        if (!driver.empty())
            return {-1, EBUSY};
        ++counts_["attach"];
        setDriver(asked.ifno, spec_.driver);
        return {spec_.driver.empty() ? 0 : 1, 0};
    }
    if (driver.empty())
        return {-1, ENODATA};
    ++counts_["detach"];
    setDriver(asked.ifno, "");
    return {};
}

std::optional<std::vector<std::uint8_t>> EmulatedPrinter::answerTo(int type, int request, int value, int length)
{
    std::optional<std::vector<std::uint8_t>> answer;
    if (type == 0xA1 && request == 0) {
        ++counts_["device-id"];
        answer = deviceId_;
    } else if (type == 0xA1 && request == 1) {
        answer = std::vector{portStatus_};
    } else if (type == 0x21 && request == 2) {
        ++counts_["soft-reset"];
        toSend_.clear();
        answer.emplace();
    } else if (type == 0x80 && request == 6 && value >> 8 == 1) {
        auto bytes = spec_.descriptorBytes();
        bytes.resize(std::min<std::size_t>(bytes.size(), 18));
        answer = std::move(bytes);
    }
    if (answer && answer->size() > static_cast<std::size_t>(length))
        answer->resize(static_cast<std::size_t>(length));
    return answer;
}

EmulatedPrinter::Reply EmulatedPrinter::control(UMockdevIoctlData* data)
{
    const auto& asked = *in<usbdevfs_ctrltransfer>(data);
    if (ignoresDeviceId_ && asked.bRequestType == 0xA1 && asked.bRequest == 0)
        return {-1, ETIMEDOUT, std::chrono::milliseconds(asked.timeout)};
    const auto answer = answerTo(asked.bRequestType, asked.bRequest, asked.wValue, asked.wLength);
    if (!answer)
        return {-1, EPIPE};
    if (!answer->empty()) {
        auto* buffer =
            umockdev_ioctl_data_resolve(data, G_STRUCT_OFFSET(usbdevfs_ctrltransfer, data), asked.wLength, nullptr);
        if (!buffer)
            return {-1, EFAULT};
        umockdev_ioctl_data_update(buffer, 0, const_cast<std::uint8_t*>(answer->data()),
                                   static_cast<int>(answer->size()));
        g_object_unref(buffer);
    }
    return {static_cast<int>(answer->size()), 0};
}

EmulatedPrinter::Reply EmulatedPrinter::submit(UMockdevIoctlData* data)
{
    auto transfer = std::make_unique<Transfer>();
    transfer->request = static_cast<UMockdevIoctlData*>(g_object_ref(data));
    const auto& urb = transfer->urb();
    if (urb.buffer_length > 0)
        transfer->buffer = umockdev_ioctl_data_resolve(data, G_STRUCT_OFFSET(usbdevfs_urb, buffer),
                                                       static_cast<gulong>(urb.buffer_length), nullptr);
    if (slowness_.count() > 0)
        transfer->notBefore = std::chrono::steady_clock::now() + slowness_;
    transfers_.push_back(std::move(transfer));
    advance(*transfers_.back());
    return {};
}

EmulatedPrinter::Reply EmulatedPrinter::discard(UMockdevIoctlData* argument)
{
    const auto address = *in<unsigned long>(argument);
    const auto found = std::find_if(transfers_.begin(), transfers_.end(), [address](const auto& each) {
        return !each->hasEnded && each->request->client_addr == address;
    });
    if (found == transfers_.end())
        return {-1, EINVAL};
    (*found)->end(-ENOENT);
    return {};
}

EmulatedPrinter::Reply EmulatedPrinter::reap(UMockdevIoctlData* data)
{
    for (const auto& each : transfers_)
        if (!each->hasEnded)
            advance(*each);
    const auto found =
        std::find_if(transfers_.begin(), transfers_.end(), [](const auto& each) { return each->hasEnded; });
    if (found == transfers_.end())
        return {-1, isGone_ ? ENODEV : EAGAIN, kNothingYet};
    umockdev_ioctl_data_set_ptr(data, 0, (*found)->request);
    transfers_.erase(found);
    return {};
}

void EmulatedPrinter::advance(Transfer& transfer)
{
    if (isGone_)
        return transfer.end(-ESHUTDOWN);
    const auto& urb = transfer.urb();
    if (urb.type == USBDEVFS_URB_TYPE_CONTROL)
        return advanceControl(transfer);
    if (urb.type != USBDEVFS_URB_TYPE_BULK)
        return transfer.end(-EINVAL);
    if (std::chrono::steady_clock::now() < transfer.notBefore)
        return;
    if (urb.endpoint & 0x80)
        giveAnswer(transfer);
    else
        take(transfer);
}

void EmulatedPrinter::advanceControl(Transfer& transfer)
{
    const auto* const setup = transfer.buffer->data;
    if (ignoresDeviceId_ && setup[0] == 0xA1 && setup[1] == 0)
        return;
    const auto answer = answerTo(setup[0], setup[1], setup[2] | setup[3] << 8, setup[6] | setup[7] << 8);
    if (!answer)
        return transfer.end(-EPIPE);
    std::copy(answer->begin(), answer->end(), transfer.buffer->data + 8);
    transfer.done = answer->size();
    transfer.end(0);
}

void EmulatedPrinter::take(Transfer& transfer)
{
    if (isHalted_)
        return transfer.end(-EPIPE);
    const auto length = static_cast<std::size_t>(transfer.urb().buffer_length);
    const auto first = std::find_if(transfers_.begin(), transfers_.end(), [](const auto& each) {
        return !each->hasEnded && each->urb().type == USBDEVFS_URB_TYPE_BULK && !(each->urb().endpoint & 0x80);
    });
    if (first->get() != &transfer)
        return; // those handed in before it come first
    const auto bound = std::min({takeLimit_, stallsLeft_ > 0 ? stallAt_ : SIZE_MAX, unplugAt_});
    const auto room = bound > taken_.size() ? bound - taken_.size() : 0;
    const auto count = std::min(length - transfer.done, room);
    if (count > 0) {
        const auto* const bytes = reinterpret_cast<const char*>(transfer.buffer->data) + transfer.done;
        taken_.append(bytes, count);
        if (echoes_)
            toSend_.append(bytes, count);
        transfer.done += count;
    }
    if (taken_.size() >= unplugAt_) {
        isGone_ = true;
        return transfer.end(-ESHUTDOWN);
    }
    if (stallsLeft_ > 0 && taken_.size() >= stallAt_ && transfer.done < length) {
        --stallsLeft_;
        isHalted_ = true;
        return transfer.end(-EPIPE);
    }
    if (transfer.done < length)
        return;
    counts_["empty-packet"] += length == 0 || (transfer.urb().flags & USBDEVFS_URB_ZERO_PACKET) != 0;
    ++counts_["out"];
    transfer.end(0);
}

void EmulatedPrinter::giveAnswer(Transfer& transfer)
{
    if (toSend_.empty())
        return;
    const auto count = std::min(toSend_.size(), static_cast<std::size_t>(transfer.urb().buffer_length));
    std::copy_n(toSend_.begin(), count, transfer.buffer->data);
    toSend_.erase(0, count);
    transfer.done = count;
    transfer.end(0);
}
