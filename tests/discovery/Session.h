#pragma once

#include <algorithm>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include <dmf/ADMBaseDiscovery.h>

#include "discovery/FakeBackEnd.h"

using Names = std::vector<std::string>;
inline const Names kFake{"Fake"};

/// A discovery with a delegate that keeps what it hears, scheduled in the default mode unless said otherwise.
struct Session {
    explicit Session(const Names& channels = {"Print"}, bool isScheduled = true)
        : discovery(ADMBaseDiscovery::initWithChannelNames(channels)),
          delegate(std::make_shared<ADMDiscoveryDelegate>())
    {
        delegate->discoveryWillStart = [this](auto&) { hear("will start"); };
        delegate->discoveryDidFindService = [this](auto&, const auto& service) { hear("found " + hostOf(*service)); };
        delegate->discoveryDidRemoveService = [this](auto&, const auto& service) { hear("lost " + hostOf(*service)); };
        delegate->discoveryDidNotDiscover = [this](auto&, const dmf::Dictionary& error) {
            hear(error[kDMErrorDescription].description());
        };
        delegate->discoveryDidStop = [this](auto&) { hear("did stop"); };
        delegate->discoveryFilterDidChange = [this](auto&) { hear("filter"); };
        discovery->setDelegate(delegate);
        if (isScheduled)
            discovery->scheduleInRunLoop(dmf::RunLoop::current(), dmf::kDefaultRunLoopMode);
    }
    static std::string hostOf(ADMServiceInfo& service)
    {
        return service.connectionParams()[kIPAddressParam].description();
    }
    void hear(const std::string& what)
    {
        EXPECT_EQ(std::this_thread::get_id(), thread);
        heard.push_back(what);
    }
    /// Starts it, and waits until its back ends run.
    void start(const DiscoveryHost& host, std::size_t backEnds = 1)
    {
        discovery->scheduleDiscoveryForConnectionTypes(kFake);
        ASSERT_TRUE(turnUntil([&] {
            const auto sources = discovery->sources();
            return host.backEnds.alive().size() == backEnds &&
                   std::all_of(sources.begin(), sources.end(),
                               [](auto& it) { return it.state == ADMDiscoverySource::State::running; });
        }));
    }
    bool hears(std::size_t count)
    {
        return turnUntil([&] { return heard.size() >= count; });
    }

    const std::thread::id thread = std::this_thread::get_id();
    Names heard;
    std::shared_ptr<ADMBaseDiscovery> discovery;
    std::shared_ptr<ADMDiscoveryDelegate> delegate;
};
