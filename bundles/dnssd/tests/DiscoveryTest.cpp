#include "../Discovery.h"

#include <condition_variable>
#include <functional>
#include <future>
#include <map>
#include <mutex>

#include <gtest/gtest.h>

#include <dmf/ADMPlugInManager.h>
#include <dmf/ADMServiceInfoImp.h>
#include <dmf/DMKeys.h>

#include "support/AvahiFixture.h"
#include "support/TurnUntil.h"

using dmf::Dictionary;
using dmf::dnssd::Browse;
using dmf::dnssd::Discovery;
using namespace std::chrono_literals;

namespace {
/// Writes down what a discovery reports: "+Name _ipp._tcp." for a find, "-..." for a loss.
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

    bool waitFor(const std::function<bool()>& condition, std::chrono::seconds limit = 30s)
    {
        std::unique_lock held(lock_);
        return changed_.wait_for(held, limit, condition);
    }
    /// Until each has been told, in whatever order.
    bool waitFor(const std::vector<std::string>& events)
    {
        return waitFor([&] {
            return std::all_of(events.begin(), events.end(), [&](const auto& event) { return count(event) > 0; });
        });
    }
    bool waitForReports(std::size_t number)
    {
        return waitFor([&] { return told_.size() >= number; });
    }
    std::vector<std::string> told()
    {
        std::lock_guard guard(lock_);
        return told_;
    }
    std::shared_ptr<ADMServiceInfo> service(const std::string& event)
    {
        std::lock_guard guard(lock_);
        return services_[event];
    }

    std::function<void()> onReport;
    std::shared_ptr<IDMServiceDiscoveryDelegate> delegate = std::make_shared<IDMServiceDiscoveryDelegate>();

private:
    std::ptrdiff_t count(const std::string& event) const { return std::count(told_.begin(), told_.end(), event); }
    void note(const std::string& sign, const std::shared_ptr<ADMServiceInfo>& service)
    {
        const auto params = service->connectionParams();
        const auto event = sign + params.string(kBonjourServiceNameParam).value_or("?") + " " +
                           params.string(kBonjourServiceTypeParam).value_or("?");
        {
            std::lock_guard guard(lock_);
            told_.push_back(event);
            services_[event] = service;
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

std::shared_ptr<IDMServiceDiscovery> made(Recorder& recorder, const std::string& channel = "Print")
{
    auto discovery = Discovery::initWithServiceName(channel, "Rendezvous", {});
    discovery->setDelegate(recorder.delegate);
    return discovery;
}

std::shared_ptr<IDMServiceDiscovery> started(Recorder& recorder, const std::string& channel = "Print")
{
    auto discovery = made(recorder, channel);
    Dictionary error;
    EXPECT_TRUE(discovery->startServiceDiscovery(&error)) << error.description();
    return discovery;
}

/// Until the source tells of that trouble (0 for none).
bool waitForTrouble(IDMServiceDiscovery& discovery, int code)
{
    return turnUntil([&] {
        const auto error = discovery.lastError();
        return (error.empty() ? 0 : error[kDMErrorCode].asNumber()->int32Value()) == code;
    });
}

bool discoveryThreadEnds()
{
    return turnUntil([] { return !ADMServiceDiscoveryBase::runloop(); });
}

class DnssdDiscovery : public testing::Test {
protected:
    void SetUp() override
    {
        if (const auto problem = AvahiFixture::problem(); !problem.empty())
            GTEST_SKIP() << problem;
        avahi = std::make_unique<AvahiFixture>();
    }
    // Nothing is left of a discovery that was let go of.
    void TearDown() override { EXPECT_TRUE(discoveryThreadEnds()); }

    std::unique_ptr<AvahiFixture> avahi;
};
} // namespace

TEST_F(DnssdDiscovery, FindsWhatIsAnnouncedAndWhatItSaysOfItself)
{
    ASSERT_TRUE(avahi->start());
    const std::string odd = "Büro. 50% /\"q\" 'x' \\ & = #1?";
    std::vector<AvahiFixture::Publication> publications;
    // All at once: each takes the daemon most of a second.
    const auto publish = [&](const auto&... arguments) { publications.push_back(avahi->beginToPublish(arguments...)); };
    using Txt = std::vector<std::string>;
    publish("Office", "_ipp._tcp", 631, Txt{"txtvers=1", "usb_MFG=QL", "usb_MDL=Model 9", "usb_SN=CN12"});
    publish("Office", "_printer._tcp", 515, Txt{"ty=QL Model 9"});
    publish(
        odd, "_pdl-datastream._tcp", 9100,
        Txt{"usb_MFG=ql", "usb_MFG=Other", "=x", "flag", "raw=\xFF\x01", std::string(255, 'y'), std::string(255, 'z')});
    publish("Foreign", "_ipp._tcp", 631, Txt{"usb_MFG=Acme", "usb_MDL=Nine"});
    publish("Web", "_http._tcp", 80, Txt{});
    publish("Flatbed", "_uscan._tcp", 80, Txt{"mfg=Tessaly-Corvan"});
    ASSERT_TRUE(publications[0]->isReady());

    // Some of it is there already, some comes.
    Recorder print, scan, web;
    const auto discovery = started(print);
    const auto scanDiscovery = started(scan, "Scan");
    const auto webDiscovery = started(web, "Embedded Web Server");
    const std::string office = "+Office _ipp._tcp.", spooled = "+Office _printer._tcp.";
    ASSERT_TRUE(print.waitFor({office, spooled, "+" + odd + " _pdl-datastream._tcp."}))
        << testing::PrintToString(print.told());
    ASSERT_TRUE(scan.waitFor({"+Flatbed _uscan._tcp."}));
    ASSERT_TRUE(web.waitFor({"+Web _http._tcp."}));
    EXPECT_TRUE(discovery->lastError().empty());

    const auto found = print.service(office);
    EXPECT_EQ(found->uri(), "dnssd://Office._ipp._tcp.local./?bidi");
    EXPECT_EQ(found->connectionType(), "Rendezvous");
    EXPECT_EQ(found->deviceClass(), kPrinterDeviceClass);
    EXPECT_EQ(found->vendorName(), "QL");
    EXPECT_EQ(found->modelName(), "Model 9");
    EXPECT_EQ(found->deviceName(), "Office");
    EXPECT_EQ(found->connectionParams().string(kSerialNumberParam), "CN12");
    EXPECT_EQ(found->connectionParams().string(kBonjourServiceDomainParam), "local.");
    EXPECT_EQ(print.service("+" + odd + " _pdl-datastream._tcp.")->vendorName(), "ql");
    EXPECT_EQ(scan.service("+Flatbed _uscan._tcp.")->deviceClass(), kScannerDeviceClass);

    // One find each, though each is there over three interfaces and families; and it lasts while one is left.
    ASSERT_TRUE(avahi->setCable(false));
    const auto marker = avahi->publish("Marker", "_ipp._tcp", 631);
    ASSERT_TRUE(marker);
    ASSERT_TRUE(print.waitFor({"+Marker _ipp._tcp."}));
    EXPECT_EQ(print.told().size(), 4u);
    publications[0] = nullptr;
    ASSERT_TRUE(print.waitFor({"-Office _ipp._tcp."}));
    EXPECT_TRUE(print.service("-Office _ipp._tcp.")->isEqual(*found));
    EXPECT_EQ(print.told().size(), 5u);
}

TEST_F(DnssdDiscovery, TellsWhatIsMissingAndComesBack)
{
    avahi->announceAlways("Stays", "_ipp._tcp", 631);
    Recorder recorder;
    const auto discovery = started(recorder);
    EXPECT_TRUE(waitForTrouble(*discovery, Browse::noBus));
    ASSERT_TRUE(avahi->startBus());
    EXPECT_TRUE(waitForTrouble(*discovery, Browse::noDaemon));
    ASSERT_TRUE(avahi->startDaemon());
    EXPECT_TRUE(waitForTrouble(*discovery, 0));
    auto goes = avahi->publish("Goes", "_ipp._tcp", 631);
    ASSERT_TRUE(goes);
    ASSERT_TRUE(recorder.waitFor({"+Stays _ipp._tcp.", "+Goes _ipp._tcp."}));

    // A daemon that dies takes nothing along until the next one has looked.
    avahi->stopDaemon();
    EXPECT_TRUE(waitForTrouble(*discovery, Browse::noDaemon));
    goes = nullptr;
    EXPECT_EQ(recorder.told().size(), 2u);
    ASSERT_TRUE(avahi->startDaemon());
    EXPECT_TRUE(recorder.waitFor({"-Goes _ipp._tcp."}));
    EXPECT_EQ(recorder.told().size(), 3u); // the other one neither went nor came
    EXPECT_TRUE(discovery->lastError().empty());

    // The bus goes and comes back under the same address.
    avahi->stopBus();
    EXPECT_TRUE(waitForTrouble(*discovery, Browse::noBus));
    avahi->stopDaemon();
    ASSERT_TRUE(avahi->start());
    EXPECT_TRUE(waitForTrouble(*discovery, 0));
    const auto comes = avahi->publish("Comes", "_printer._tcp", 515);
    ASSERT_TRUE(comes);
    EXPECT_TRUE(recorder.waitFor({"+Comes _printer._tcp."}));
    EXPECT_EQ(recorder.told().size(), 4u);
    discovery->stop();
    EXPECT_TRUE(discovery->lastError().empty());
}

TEST_F(DnssdDiscovery, ADaemonThatHangsIsToldSoonAndWaitedFor)
{
    avahi->announceAlways("Stays", "_ipp._tcp", 631);
    ASSERT_TRUE(avahi->start());
    avahi->setHung(true);
    Recorder recorder;
    const auto discovery = started(recorder);
    EXPECT_TRUE(waitForTrouble(*discovery, Browse::daemonFails));
    EXPECT_EQ(discovery->lastError()[kDMErrorDescription], "The Avahi daemon does not answer.");
    avahi->setHung(false);
    EXPECT_TRUE(waitForTrouble(*discovery, 0));
    EXPECT_TRUE(recorder.waitFor({"+Stays _ipp._tcp."}));

    // One that hangs later is noticed by those who ask.
    avahi->setHung(true);
    EXPECT_TRUE(waitForTrouble(*discovery, Browse::daemonFails));
    avahi->setHung(false);
    EXPECT_TRUE(waitForTrouble(*discovery, 0));
    EXPECT_EQ(recorder.told().size(), 1u);
}

TEST_F(DnssdDiscovery, NothingIsReportedAfterAStopAndAnyThreadMayLetGo)
{
    ASSERT_TRUE(avahi->start());
    const auto first = avahi->beginToPublish("First", "_ipp._tcp", 631);
    const auto second = avahi->beginToPublish("Second", "_ipp._tcp", 631);
    ASSERT_TRUE(first->isReady() && second->isReady());

    // Stopped from inside the first report: the second service is never told of.
    Recorder stopping;
    const auto stopped = made(stopping);
    stopping.onReport = [&] { stopped->stop(); };
    ASSERT_TRUE(stopped->startServiceDiscovery(nullptr));
    ASSERT_TRUE(stopping.waitForReports(1));
    // Let go of for good from inside a report.
    Recorder releasing;
    std::promise<void> isStarted;
    auto released = made(releasing);
    const std::weak_ptr<IDMServiceDiscovery> weak = released;
    releasing.onReport = [&, started = isStarted.get_future().share()] {
        started.wait();
        released = nullptr;
    };
    ASSERT_TRUE(released->startServiceDiscovery(nullptr));
    isStarted.set_value();
    ASSERT_TRUE(releasing.waitForReports(1));

    // One that sees both shows that the others could have.
    Recorder watching;
    const auto watcher = started(watching);
    ASSERT_TRUE(watching.waitFor({"+First _ipp._tcp.", "+Second _ipp._tcp."}));
    EXPECT_TRUE(turnUntil([&] { return weak.expired(); }));
    EXPECT_EQ(stopping.told().size(), 1u);
    EXPECT_EQ(releasing.told().size(), 1u);

    // It can be started again, and finds everything anew; stopping and starting in a hurry leaves one run.
    Recorder again;
    for (int i = 0; i < 20; ++i) {
        stopped->stop();
        stopped->setDelegate(again.delegate);
        ASSERT_TRUE(stopped->startServiceDiscovery(nullptr));
    }
    ASSERT_TRUE(again.waitFor({"+First _ipp._tcp.", "+Second _ipp._tcp."}));
}

TEST_F(DnssdDiscovery, StartsForKnownChannelsOnlyAndThroughThePlugInManager)
{
    const auto found = ADMPlugInManager::sharedManager()->implementorForProtocol(
        IDMServiceDiscovery::protocol(), {{std::string(kDMServiceConnectionType), "Rendezvous"}});
    ASSERT_TRUE(found);
    const auto discovery = found->make<IDMServiceDiscovery>("Fax", "Rendezvous", Dictionary());
    ASSERT_TRUE(discovery);
    Dictionary error;
    EXPECT_FALSE(discovery->startServiceDiscovery(&error));
    EXPECT_EQ(error[kDMErrorCode], 2);
}
