#pragma once

#include <atomic>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include <dmf/ADMDiscovery.h>
#include <dmf/ADMServiceDiscoveryBase.h>
#include <dmf/ADMServiceInfoImp.h>
#include <dmf/DMKeys.h>

#include "support/HostFixture.h"
#include "support/TestPlugIns.h"
#include "support/TurnUntil.h"

class FakeServiceDiscovery;

/// How the test's back ends behave, and which of them there are. One for each test.
class FakeBackEnds {
public:
    FakeBackEnds() { current() = this; }
    /// Waits for those that are still on their way out on a thread of the library.
    ~FakeBackEnds()
    {
        EXPECT_TRUE(turnUntil([] { return providers() == 0; }));
        current() = nullptr;
    }
    FakeBackEnds(const FakeBackEnds&) = delete;
    FakeBackEnds& operator=(const FakeBackEnds&) = delete;
    static FakeBackEnds*& current()
    {
        static FakeBackEnds* the = nullptr;
        return the;
    }

    /// How many providers there are.
    static std::atomic<int>& providers()
    {
        static std::atomic<int> count{0};
        return count;
    }

    /// What happens as a back end starts, on the creating thread; its result is the provider's status.
    std::function<std::uint32_t(FakeServiceDiscovery&)> onStart = [](FakeServiceDiscovery&) { return 0U; };
    std::function<void()> onStop;
    bool makesNoProvider = false;

    void note(const std::shared_ptr<FakeServiceDiscovery>& made)
    {
        std::lock_guard guard(lock_);
        made_.push_back(made);
    }
    std::vector<std::shared_ptr<FakeServiceDiscovery>> alive() const
    {
        std::lock_guard guard(lock_);
        std::vector<std::shared_ptr<FakeServiceDiscovery>> result;
        for (const auto& weak : made_) {
            if (auto strong = weak.lock())
                result.push_back(std::move(strong));
        }
        return result;
    }
    std::size_t madeCount() const
    {
        std::lock_guard guard(lock_);
        return made_.size();
    }

private:
    mutable std::mutex lock_;
    std::vector<std::weak_ptr<FakeServiceDiscovery>> made_; // guarded by lock_
};

class FakeServiceDiscovery final : public ADMServiceDiscoveryBase {
public:
    class Provider final : public ADMDiscoveryProvider {
    public:
        explicit Provider(const std::shared_ptr<FakeServiceDiscovery>& parent) : ADMDiscoveryProvider(parent)
        {
            ++FakeBackEnds::providers();
        }
        ~Provider() override { --FakeBackEnds::providers(); }
        Status startDiscovery(std::string_view, std::optional<std::string_view>) override
        {
            const auto owner = std::static_pointer_cast<FakeServiceDiscovery>(parent());
            return FakeBackEnds::current()->onStart(*owner);
        }
        Status stopDiscovery() override
        {
            // One that goes is stopped again, which does not count.
            if (parent() && FakeBackEnds::current()->onStop)
                FakeBackEnds::current()->onStop();
            return 0;
        }
    };

    FakeServiceDiscovery(std::string name, std::string type, dmf::Dictionary parameters)
        : ADMServiceDiscoveryBase(std::move(name), std::move(type), std::move(parameters))
    {
    }
    static std::shared_ptr<FakeServiceDiscovery> make(std::string name, std::string type, dmf::Dictionary parameters)
    {
        FakeBackEnds& all = *FakeBackEnds::current();
        auto made = std::make_shared<FakeServiceDiscovery>(std::move(name), std::move(type), std::move(parameters));
        if (!all.makesNoProvider)
            made->setDiscovery(std::make_shared<Provider>(made));
        all.note(made);
        return made;
    }
    const std::shared_ptr<ADMDiscoveryProvider>& provider() const { return discovery(); }

    /// Reports from the discovery thread, as back ends do.
    void report(const std::shared_ptr<ADMServiceInfo>& service, bool isRemoved = false)
    {
        performAction([self = shared_from_this(), service, isRemoved] { self->announceService(service, isRemoved); });
    }
    /// Everything that was reported before has reached the delegate when this returns.
    static void settle()
    {
        if (const auto completion = performAction([] {})) {
            completion->lock();
            completion->unlock();
        }
    }
};

/// A machine on which the back ends of the test serve the connection types "Fake" and "Other".
class DiscoveryHost : public HostFixture {
public:
    DiscoveryHost()
    {
        host().libraryFolder = path("/lib").string();
        for (const std::string type : {"Fake", "Other"})
            testplugins::make(path("/lib/dmf/PlugIns/" + type + ".bundle"), "Alpha",
                              {{std::string(kDMServiceConnectionType), type},
                               {"DMPlugInProtocol2ImplementorMap",
                                dmf::Dictionary{{"IDMServiceDiscovery", "FakeServiceDiscovery"}}}});
    }
    FakeBackEnds backEnds;
};

/// A filter that asks the test.
class TestFilter final : public ADMDiscoveryFilter {
public:
    explicit TestFilter(std::function<bool(ADMServiceInfo&)> accepts) : accepts_(std::move(accepts)) {}
    bool isAcceptedService(ADMServiceInfo& service) override { return accepts_(service); }

private:
    const std::function<bool(ADMServiceInfo&)> accepts_;
};

inline std::shared_ptr<ADMServiceInfo> serviceAt(const std::string& address)
{
    return ADMServiceInfoImp::initWithURI("socket://" + address + ":9100?vendor=QL&product=Model%209",
                                          kPrinterDeviceClass);
}
