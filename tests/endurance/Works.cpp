#include "Works.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <future>
#include <memory>
#include <stdexcept>
#include <vector>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <dmf/ADMBaseDiscovery.h>
#include <dmf/ADMDataChannelFactory.h>
#include <dmf/ADMDistributedLock.h>
#include <dmf/ADMMessageQueue.h>
#include <dmf/ADMModelInfo.h>
#include <dmf/ADMModelInfoManager.h>
#include <dmf/ADMOperationQueue.h>
#include <dmf/ADMPlugInManager.h>
#include <dmf/ADMSchedulableOperation.h>
#include <dmf/ADMServiceInfoImp.h>
#include <dmf/ADMUsernameAndPasswordAuthenticationInfo.h>
#include <dmf/DMKeys.h>
#include <dmf/DMLog.h>

#include "support/ChannelDelegate.h"

namespace endurance {
namespace {

using Discovery = ADMBaseDiscovery;
constexpr double kSeconds = 5;

Outcome doneIf(bool isDone)
{
    return isDone ? Outcome::done : Outcome::refused;
}

std::shared_ptr<ADMServiceInfoImp> serviceOf(const Stage& stage)
{
    return ADMServiceInfoImp::serviceInfoWithURI(stage.deviceUri, kPrinterDeviceClass);
}

Outcome address(Stage& stage)
{
    const auto service = serviceOf(stage);
    if (!service)
        return Outcome::refused;
    const auto again = ADMServiceInfoImp::serviceInfoWithData(service->dataRepresentation());
    return doneIf(again && again->connectionType() == "IP" && again->modelName() == "Aurora 450n");
}

Outcome model(Stage&)
{
    const auto info = ADMModelInfoManager::sharedManager()->modelInfoWithModelName("QL Aurora 450n");
    return doneIf(info && info->modelId() == "0x4501");
}

Outcome plugIns(Stage&)
{
    const auto reports = ADMPlugInManager::sharedManager()->examineAllPlugIns();
    return doneIf(
        std::ranges::any_of(reports, [](const auto& it) { return it.state == ADMPlugInReport::State::loaded; }));
}

Outcome discovery(Stage&)
{
    const auto found =
        Discovery::initWithChannelNames({"Print"})->performDiscoveryForConnectionTypes({"Simulated"}, 0.2);
    return doneIf(found && found->size() == 3);
}

/// Where there is no daemon nothing is found, and nothing is waited for.
Outcome localNetwork(Stage&)
{
    return doneIf(Discovery::initWithChannelNames({"Print"})
                      ->performDiscoveryForConnectionTypes({"Rendezvous"}, 0.05)
                      .has_value());
}

Outcome resolution(Stage& stage)
{
    const auto service = serviceOf(stage);
    if (!service)
        return Outcome::refused;
    service->scheduleInRunLoop(dmf::RunLoop::current(), dmf::kDefaultRunLoopMode);
    service->resolveWithTimeout(kSeconds);
    if (!turnUntil([&] { return service->serviceState() != 0; }))
        return Outcome::silent;
    return doneIf(service->serviceState() == 1);
}

Outcome channel(Stage& stage)
{
    const auto service = serviceOf(stage);
    const auto made = ADMDataChannelFactory::init()->newDuplexDataChannelWithServiceInfo(service, kDMPrintChannelName);
    if (!made || !made->open())
        return Outcome::refused;
    const bool isSent = made->writeData(dmf::Data::fromText("hello"), kSeconds, nullptr);
    dmf::Data answer;
    const bool isAnswered = isSent && made->readDataOfLength(answer, 5, kSeconds, nullptr);
    made->close();
    return doneIf(isAnswered && answer.text() == "hello");
}

Outcome transfer(Stage& stage)
{
    const auto service = serviceOf(stage);
    const auto made = ADMDataChannelFactory::init()->newDuplexDataChannelWithServiceInfo(service, kDMPrintChannelName);
    if (!made)
        return Outcome::refused;
    RecordingDelegate recorder;
    made->setDelegate(recorder.delegate);
    made->scheduleInRunLoop(dmf::RunLoop::current(), dmf::kDefaultRunLoopMode);
    if (!made->open() || !made->scheduleWriteData(dmf::Data::fromText("hello"), kSeconds))
        return Outcome::refused;
    const bool isTold = turnUntil([&] {
        return !recorder.told.empty() &&
               (recorder.told.back() == "writeDone" || recorder.told.back().starts_with("failed"));
    });
    const bool isDone = isTold && recorder.told.back() == "writeDone";
    made->close();
    return isTold ? doneIf(isDone) : Outcome::silent;
}

Outcome logLine(Stage& stage)
{
    static std::atomic<int> number{0};
    const std::string text = "line " + std::to_string(++number) + " of " + std::to_string(::getpid()) + ".";
    DMFLog("warnings", "Endurance: %@", text);
    return doneIf(stage.machine.readFile("/var/log/qlio/DMF_testprogram.log").find(text) != std::string::npos);
}

Outcome lock(Stage& stage)
{
    std::error_code ignored;
    std::filesystem::create_directories(stage.machine.path("/tmp"), ignored);
    const auto made = ADMDistributedLock::lockWithName("endurance");
    return doneIf(made && made->lock() && made->unlock());
}

Outcome messages(Stage&)
{
    int received = 0;
    const auto queue = ADMMessageQueue::initWithInvocation([&](ADMMessageQueue&, const dmf::Value&) { ++received; });
    queue->scheduleInRunLoop(dmf::RunLoop::current(), dmf::kDefaultRunLoopMode);
    for (int i = 0; i < 10; ++i)
        queue->addObject(i);
    const auto limit = dmf::Date::afterNow(kSeconds);
    while (received < 10 && dmf::Date::now() < limit &&
           dmf::RunLoop::current()->runMode(dmf::kDefaultRunLoopMode, limit, true) ==
               dmf::RunLoop::Result::handledSource) {
    }
    queue->invalidate();
    return doneIf(received == 10);
}

/// Says when it runs.
class Telling final : public ADMSchedulableOperation {
public:
    Telling(Initializer&& initializer, std::shared_ptr<std::promise<void>> told)
        : ADMSchedulableOperation(std::move(initializer)), told_(std::move(told))
    {
    }
    std::shared_ptr<ADMCallback> performOperation() override
    {
        told_->set_value();
        return nullptr;
    }

private:
    const std::shared_ptr<std::promise<void>> told_;
};

Outcome operation(Stage& stage)
{
    const auto told = std::make_shared<std::promise<void>>();
    auto made = ADMSchedulableOperation::initWithServiceInfo<Telling>(serviceOf(stage), told);
    if (!made)
        return Outcome::refused;
    const auto queue = std::make_shared<ADMOperationQueue>();
    queue->scheduleOperation(std::move(made));
    if (queue->threadState() != ADMOperationQueue::ThreadState::running)
        return Outcome::refused;
    const bool isTold = told->get_future().wait_for(std::chrono::seconds(30)) == std::future_status::ready;
    queue->invalidate();
    return isTold ? Outcome::done : Outcome::silent;
}

/// There is no keyring on the machine: the answer is that nothing is kept.
Outcome credential(Stage& stage)
{
    const auto service = serviceOf(stage);
    return doneIf(service && !ADMUsernameAndPasswordAuthenticationInfo::initFromKeychainForServiceInfo(service));
}

constexpr std::array<Work, 13> kWorks{{{"address", address},
                                       {"model", model},
                                       {"plug-ins", plugIns},
                                       {"discovery", discovery},
                                       {"local network", localNetwork},
                                       {"resolution", resolution},
                                       {"channel", channel},
                                       {"transfer", transfer},
                                       {"log line", logLine},
                                       {"lock", lock},
                                       {"messages", messages},
                                       {"operation", operation},
                                       {"credential", credential}}};

[[noreturn]] void echoForEver(int listener)
{
    std::vector<pollfd> watched{{listener, POLLIN, 0}};
    while (::poll(watched.data(), watched.size(), -1) >= 0) {
        for (std::size_t i = watched.size(); i-- > 1;) {
            if (watched[i].revents == 0)
                continue;
            char buffer[4096];
            const auto got = ::recv(watched[i].fd, buffer, sizeof buffer, 0);
            if (got > 0 && ::send(watched[i].fd, buffer, static_cast<std::size_t>(got), MSG_NOSIGNAL) == got)
                continue;
            ::close(watched[i].fd);
            watched.erase(watched.begin() + static_cast<std::ptrdiff_t>(i));
        }
        if (watched[0].revents != 0) {
            if (const int taken = ::accept(listener, nullptr, nullptr); taken >= 0)
                watched.push_back({taken, POLLIN, 0});
        }
    }
    ::_exit(1);
}

} // namespace

std::string_view nameOf(Outcome outcome)
{
    switch (outcome) {
    case Outcome::done: return "done";
    case Outcome::refused: return "refused";
    case Outcome::silent: break;
    }
    return "silent";
}

std::span<const Work> works()
{
    return kWorks;
}

std::string startEchoDevice()
{
    const int listener = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in name{};
    name.sin_family = AF_INET;
    name.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t length = sizeof name;
    if (::bind(listener, reinterpret_cast<sockaddr*>(&name), length) != 0 || ::listen(listener, 64) != 0 ||
        ::getsockname(listener, reinterpret_cast<sockaddr*>(&name), &length) != 0)
        throw std::runtime_error("cannot listen");
    if (::fork() == 0) {
        ::prctl(PR_SET_PDEATHSIG, SIGKILL);
        echoForEver(listener);
    }
    ::close(listener);
    return "socket://127.0.0.1:" + std::to_string(ntohs(name.sin_port)) + "/?vendor=QL&product=Aurora%20450n";
}

} // namespace endurance
