#pragma once

#include <filesystem>
#include <fstream>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include <dmf/ADMServiceInfoImp.h>
#include <dmf/DMKeys.h>

#include "FakeTransport.h"
#include "support/HostFixture.h"
#include "support/TurnUntil.h"

/// What the tests of resolvers have in common.
namespace resolvertest {

inline constexpr std::string_view kMode = "TestMode";
inline const std::vector<std::string> kModes{std::string(kMode)};
inline const dmf::Dictionary kTimedOut{{"DMErrorCode", -1}, {"DMErrorDescription", "Resolving timed out."}};

/// How many threads of the process resolve something.
inline int workers()
{
    int count = 0;
    for (const auto& task : std::filesystem::directory_iterator("/proc/self/task")) {
        std::string name;
        std::ifstream(task.path() / "comm") >> name;
        count += name == "dmf-resolver";
    }
    return count;
}

/// Serves the clients' mode.
inline bool serveUntil(const std::function<bool()>& condition)
{
    return turnUntil(condition, kMode);
}

inline std::shared_ptr<ADMServiceInfoImp> serviceOn(std::shared_ptr<ADMIOProvider> transport)
{
    return ADMServiceInfoImp::initWithURI("socket://10.0.0.5", kPrinterDeviceClass, std::move(transport));
}

inline std::shared_ptr<FakeDevice> deviceOfQL()
{
    return std::make_shared<FakeDevice>(
        dmf::Dictionary{{"vendorName", "QL"}, {"modelName", "N"}, {"params", dmf::Dictionary{{"SerialNumber", "7"}}}});
}

/// A service in TestMode whose events are written down.
struct Client {
    explicit Client(std::shared_ptr<ADMIOProvider> transport) : service(serviceOn(std::move(transport)))
    {
        delegate->serviceInfoWillResolve = [this](ADMServiceInfo&) { events.emplace_back("will"); };
        delegate->serviceInfoDidResolve = [this](ADMServiceInfo&) { events.emplace_back("did"); };
        delegate->serviceInfoDidNotResolve = [this](ADMServiceInfo&, const dmf::Dictionary& why) {
            events.emplace_back("did not");
            error = why;
        };
        service->setDelegate(delegate);
        service->scheduleInRunLoop(nullptr, kMode);
    }
    bool isTold() const { return events.size() > 1; }

    std::vector<std::string> events;
    dmf::Dictionary error;
    const std::shared_ptr<ADMServiceInfoDelegate> delegate = std::make_shared<ADMServiceInfoDelegate>();
    std::shared_ptr<ADMServiceInfoImp> service;
};

class ResolverFixture : public testing::Test {
protected:
    /// No worker may see the host go; and none may be left over.
    ~ResolverFixture() override
    {
        EXPECT_TRUE(serveUntil([this] {
            host.advance(std::chrono::seconds(1));
            return workers() == 0;
        }));
    }
    HostFixture host;
};

} // namespace resolvertest
