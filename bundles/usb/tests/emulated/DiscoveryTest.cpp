#include "../../discovery/Discovery.h"

#include <algorithm>
#include <condition_variable>
#include <functional>
#include <map>
#include <mutex>

#include <gmock/gmock.h>

#include <dmf/ADMPlugInManager.h>
#include <dmf/ADMServiceInfoImp.h>
#include <dmf/DMKeys.h>

#include "UsbFixture.h"
#include "support/Stopwatch.h"

using dmf::Dictionary;
using dmf::usb::Discovery;
using dmf::usb::WatchTrouble;
using testing::ElementsAre;
using testing::UnorderedElementsAre;
using namespace std::chrono_literals;

namespace {
/// Writes down what a discovery reports: "+URI" for a find, "-URI" for a loss.
class Recorder {
public:
    Recorder()
    {
        delegate->serviceDiscoveryDidFindService = [this](IDMServiceDiscovery&, const auto& service) {
            note("+", service);
        };
        delegate->serviceDiscoveryDidDisappearService = [this](IDMServiceDiscovery&, const auto& service) {
            note("-", service);
        };
    }
    bool waitFor(std::size_t reports)
    {
        std::unique_lock held(lock_);
        return changed_.wait_for(held, 30s, [&] { return told_.size() >= reports; });
    }
    std::vector<std::string> told()
    {
        std::lock_guard guard(lock_);
        return told_;
    }
    std::vector<std::string> takeTold()
    {
        std::lock_guard guard(lock_);
        return std::exchange(told_, {});
    }
    std::shared_ptr<ADMServiceInfo> service(const std::string& uri)
    {
        std::lock_guard guard(lock_);
        return services_["+" + uri];
    }
    std::string param(const std::string& uri, std::string_view key)
    {
        const auto found = service(uri);
        return found ? found->connectionParams().string(key).value_or("none") : "no service";
    }

    std::function<void()> onReport;
    std::shared_ptr<IDMServiceDiscoveryDelegate> delegate = std::make_shared<IDMServiceDiscoveryDelegate>();

private:
    void note(const std::string& sign, const std::shared_ptr<ADMServiceInfo>& service)
    {
        {
            std::lock_guard guard(lock_);
            told_.push_back(sign + service->uri().value_or("?"));
            services_[told_.back()] = service;
        }
        if (onReport)
            onReport();
        changed_.notify_all();
    }
    std::mutex lock_;
    std::condition_variable changed_;
    std::vector<std::string> told_;
    std::map<std::string, std::shared_ptr<ADMServiceInfo>> services_;
};

std::shared_ptr<IDMServiceDiscovery> started(Recorder& recorder, const std::string& channel = "Print")
{
    auto discovery = Discovery::initWithServiceName(channel, "USB", {});
    discovery->setDelegate(recorder.delegate);
    Dictionary error;
    EXPECT_TRUE(discovery->startServiceDiscovery(&error)) << error.description();
    return discovery;
}

int troubleOf(const IDMServiceDiscovery& discovery)
{
    const auto error = discovery.lastError();
    return error.empty() ? 0 : error[kDMErrorCode].asNumber()->int32Value();
}

class UsbDiscovery : public UsbFixture {};

} // namespace

TEST_F(UsbDiscovery, FindsWhatIsThereAndWhatComesAndGoes)
{
    const auto printer = usb->prepare({});
    printer->answerDeviceId("MFG:QL;MDL:Model 9x;SN:ID77;DES:Office printer;");
    usb->plug(printer);
    usb->plug({.place = "1-2", .address = 3, .manufacturer = "Acme", .serialNumber = "A1"});
    usb->plug({.place = "1-3",
               .address = 4,
               .product = "Stick",
               .serialNumber = "S1",
               .interfaces = {{.classCode = 8, .subclass = 6, .protocol = 80}}});
    Recorder print, storage, scan;
    const auto printing = started(print), storing = started(storage, "Storage"), scanning = started(scan, "Scan");
    ASSERT_TRUE(print.waitFor(1) && storage.waitFor(1));
    EXPECT_THAT(print.told(), ElementsAre(std::string("+") + kNine));
    EXPECT_THAT(storage.told(), ElementsAre("+usb://QL/Stick?serial=S1"));
    EXPECT_EQ(storage.service("usb://QL/Stick?serial=S1")->deviceClass(), kStorageDeviceClass);
    EXPECT_EQ(print.param(kNine, kUSBLocationIDParam), "1-1");
    EXPECT_EQ(print.param(kNine, "Access"), "open");
    // What the device says of itself wins, and the URI stays.
    EXPECT_TRUE(turnUntil([&] { return print.service(kNine)->modelName() == "Model 9x"; }));
    EXPECT_EQ(print.param(kNine, kSerialNumberParam), "ID77");
    EXPECT_EQ(print.service(kNine)->deviceName(), "Office printer");
    EXPECT_EQ(print.service(kNine)->uri(), kNine);

    // Within a blink of the kernel's event, however busy this machine is by ten times.
    print.takeTold();
    const Stopwatch watch;
    usb->unplug("1-1");
    ASSERT_TRUE(print.waitFor(1));
    EXPECT_THAT(print.takeTold(), ElementsAre(std::string("-") + kNine));
    usb->plug({.place = "1-4", .address = 5});
    ASSERT_TRUE(print.waitFor(1));
    EXPECT_THAT(print.takeTold(), ElementsAre(std::string("+") + kNine)) << "another port, the same name";
    EXPECT_LT(watch.seconds(), 6);
    EXPECT_EQ(troubleOf(*printing), 0);
    EXPECT_TRUE(scan.told().empty());

    // It comes back as something else, at the same place and under the same address.
    usb->unplug("1-4");
    usb->plug({.place = "1-4",
               .address = 5,
               .productId = 0x77,
               .product = "Boot loader",
               .interfaces = {{.classCode = 8, .subclass = 6, .protocol = 80}}});
    ASSERT_TRUE(print.waitFor(1));
    EXPECT_THAT(print.takeTold(), ElementsAre(std::string("-") + kNine));
    ASSERT_TRUE(storage.waitFor(2));
    EXPECT_EQ(storage.told().back(), "+usb://QL/Boot%20loader?serial=SN0001");
}

TEST_F(UsbDiscovery, NamesStayTheSameWhateverTheDeviceIdDoes)
{
    // Whose text descriptors say too little is named by its device ID, and keeps that name when the ID fails.
    const EmulatedSpec mute{.place = "1-2", .address = 3, .manufacturer = "", .product = "", .serialNumber = "M1"};
    Recorder recorder;
    const auto discovery = started(recorder);
    const auto telling = usb->prepare(mute);
    telling->answerDeviceId("MFG:ql;MDL:Silent 7;SN:M1;");
    usb->plug(telling);
    ASSERT_TRUE(recorder.waitFor(1));
    EXPECT_THAT(recorder.takeTold(), ElementsAre("+usb://ql/Silent%207?serial=M1"));
    usb->unplug("1-2");
    const auto silent = usb->prepare(mute);
    silent->refuseDeviceId();
    usb->plug(silent);
    ASSERT_TRUE(recorder.waitFor(2));
    EXPECT_THAT(recorder.takeTold(), ElementsAre("-usb://ql/Silent%207?serial=M1", "+usb://ql/Silent%207?serial=M1"));
    usb->unplug("1-2");
    ASSERT_TRUE(recorder.waitFor(1));
    recorder.takeTold();

    // No answer of any kind takes a device away or changes what it is called.
    using namespace std::string_literals;
    const std::vector<std::function<void(EmulatedPrinter&)>> answers = {
        [](auto& printer) { printer.refuseDeviceId(); },
        [](auto& printer) { printer.ignoreDeviceId(); },
        [](auto& printer) { printer.answerDeviceIdBytes({}); },
        [](auto& printer) {
            printer.answerDeviceIdBytes({0, 2});
        },
        [](auto& printer) {
            printer.answerDeviceIdBytes({0xFF, 0xFF, 'M', 'F', 'G', ':', 0x80});
        },
        [](auto& printer) { printer.answerDeviceId("MFG:Acme;MDL:Other;SN:Z9;"); },
        [](auto& printer) { printer.answerDeviceId("MFG:QL;MDL:" + std::string(2000, 'x')); },
    };
    for (const auto& answer : answers) {
        const auto printer = usb->prepare({});
        answer(*printer);
        usb->plug(printer);
        ASSERT_TRUE(recorder.waitFor(1));
        EXPECT_TRUE(turnUntil([&] { return printer->count("claim") == 1 && printer->count("release") == 1; }));
        usb->unplug("1-1");
        ASSERT_TRUE(recorder.waitFor(2));
        EXPECT_THAT(recorder.takeTold(), ElementsAre("+"s + kNine, "-"s + kNine));
    }
}

TEST_F(UsbDiscovery, AlikeDevicesNeverShareAName)
{
    Recorder recorder;
    const auto discovery = started(recorder);
    // Without serial numbers, with one in place of one, and with one that is not theirs alone.
    usb->plug({.place = "1-1", .address = 2, .serialNumber = ""});
    usb->plug({.place = "1-2", .address = 3, .serialNumber = "0000000000"});
    usb->plug({.place = "1-3", .address = 4, .serialNumber = "SAME"});
    usb->plug({.place = "1-4", .address = 5, .serialNumber = "SAME"});
    ASSERT_TRUE(recorder.waitFor(4));
    const std::string common = "+usb://QL/Model%209?serial=";
    EXPECT_THAT(recorder.told(),
                UnorderedElementsAre(common + "port-1-1", common + "port-1-2", common + "SAME", common + "port-1-4"));
    EXPECT_EQ(recorder.param("usb://QL/Model%209?serial=port-1-1", "SerialNumberKind"), "port");
    EXPECT_EQ(recorder.param("usb://QL/Model%209?serial=SAME", "SerialNumberKind"), "none");
}

TEST_F(UsbDiscovery, AHubGoesWithAllThatHangsOnIt)
{
    Recorder recorder;
    const auto discovery = started(recorder);
    usb->plug({.place = "1-1", .address = 2, .product = "Hub", .interfaces = {{.classCode = 9, .endpoints = {}}}});
    for (int i = 1; i <= 10; ++i)
        usb->plug({.place = "1-1." + std::to_string(i), .address = 2 + i, .serialNumber = "H" + std::to_string(i)});
    ASSERT_TRUE(recorder.waitFor(10));
    auto found = recorder.takeTold();
    for (int i = 10; i >= 1; --i)
        usb->unplug("1-1." + std::to_string(i));
    usb->unplug("1-1");
    ASSERT_TRUE(recorder.waitFor(10));
    auto lost = recorder.takeTold();
    for (auto* const list : {&found, &lost}) {
        for (auto& each : *list)
            each.erase(0, 1);
        std::sort(list->begin(), list->end());
    }
    EXPECT_EQ(found, lost);
}

TEST_F(UsbDiscovery, DevicesThatMayNotBeUsedAreListedWithTheReason)
{
    Recorder recorder;
    const auto discovery = started(recorder);
    usb->plug({.hasNode = false});
    ASSERT_TRUE(recorder.waitFor(1));
    EXPECT_TRUE(turnUntil([&] { return recorder.param(kNine, "Access") == "missing"; }));
    EXPECT_TRUE(turnUntil([&] { return troubleOf(*discovery) == static_cast<int>(WatchTrouble::noAccess); }));
    usb->unplug("1-1");
    EXPECT_TRUE(turnUntil([&] { return troubleOf(*discovery) == 0; }));

    // Nobody is asked for his ID in the middle of somebody's use of him; a driver's answer serves as well.
    const auto claimed = usb->prepare({.place = "1-2", .address = 3, .serialNumber = "C1"});
    claimed->setClaimedByOther(true);
    usb->plug(claimed);
    usb->plug({.place = "1-3",
               .address = 4,
               .serialNumber = "K1",
               .driver = "usblp",
               .kernelDeviceId = "MFG:QL;MDL:Model 9k;"});
    ASSERT_TRUE(recorder.waitFor(4));
    const std::string driven = "usb://QL/Model%209?serial=K1", taken = "usb://QL/Model%209?serial=C1";
    EXPECT_TRUE(turnUntil([&] { return recorder.service(driven)->modelName() == "Model 9k"; }));
    EXPECT_TRUE(turnUntil([&] { return recorder.param(taken, "Access") == "claimed"; }));
    EXPECT_TRUE(turnUntil([&] { return recorder.param(driven, "Access") == "open"; }));
    EXPECT_EQ(claimed->count("device-id"), 0);
    EXPECT_TRUE(turnUntil([&] {
        const auto description = discovery->lastError().string(kDMErrorDescription).value_or("");
        return description.find("in use by") != std::string::npos;
    }));
}

TEST_F(UsbDiscovery, WithoutEventsItWalksThroughTheTreeAndSaysSo)
{
    usb->withoutEvents();
    Recorder recorder;
    const auto discovery = started(recorder);
    EXPECT_TRUE(turnUntil([&] { return troubleOf(*discovery) == static_cast<int>(WatchTrouble::noEvents); }));
    std::filesystem::remove_all(usb->folder() + "/sys/bus/usb");
    EXPECT_TRUE(turnUntil([&] { return troubleOf(*discovery) == static_cast<int>(WatchTrouble::noTree); }));
    usb->plug();
    ASSERT_TRUE(recorder.waitFor(1));
    usb->unplug("1-1");
    ASSERT_TRUE(recorder.waitFor(2));
    EXPECT_EQ(troubleOf(*discovery), static_cast<int>(WatchTrouble::noEvents));
}

TEST_F(UsbDiscovery, NothingIsReportedAfterAStopAndAnyThreadMayLetGo)
{
    usb->plug();
    usb->plug({.place = "1-2", .address = 3, .serialNumber = "SN0002"});
    Recorder stopping;
    auto stopped = Discovery::initWithServiceName("Print", "USB", {});
    stopped->setDelegate(stopping.delegate);
    stopping.onReport = [&] { stopped->stop(); };
    ASSERT_TRUE(stopped->startServiceDiscovery(nullptr));
    ASSERT_TRUE(stopping.waitFor(1));
    Recorder releasing;
    auto released = Discovery::initWithServiceName("Print", "USB", {});
    const std::weak_ptr<IDMServiceDiscovery> weak = released;
    releasing.onReport = [held = released]() mutable { held = nullptr; };
    released->setDelegate(releasing.delegate);
    ASSERT_TRUE(released->startServiceDiscovery(nullptr));
    released = nullptr;
    ASSERT_TRUE(releasing.waitFor(1));

    Recorder watching;
    const auto watcher = started(watching);
    ASSERT_TRUE(watching.waitFor(2));
    EXPECT_TRUE(turnUntil([&] { return weak.expired(); }));
    EXPECT_EQ(stopping.told().size(), 1u);
    EXPECT_EQ(releasing.told().size(), 1u);

    // It can be started again, and stopping and starting in a hurry leaves one run.
    Recorder again;
    for (int i = 0; i < 20; ++i) {
        stopped->stop();
        stopped->setDelegate(again.delegate);
        ASSERT_TRUE(stopped->startServiceDiscovery(nullptr));
    }
    ASSERT_TRUE(again.waitFor(2));
    EXPECT_TRUE(turnUntil([] { return threadsNamed("dmf-usb") == 2; }));
}

TEST_F(UsbDiscovery, TheBundleSuppliesIt)
{
    const auto found = ADMPlugInManager::sharedManager()->implementorForProtocol(
        IDMServiceDiscovery::protocol(), {{std::string(kDMServiceConnectionType), "USB"}});
    ASSERT_TRUE(found);
    EXPECT_TRUE(found->make<IDMServiceDiscovery>("Print", "USB", Dictionary()));
}
