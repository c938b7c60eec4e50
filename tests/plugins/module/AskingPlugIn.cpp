// A plug-in that waits, as it is loaded, for another thread which asks the plug-in manager.
#include <dmf/ADMIOProvider.h>
#include <dmf/ADMPlugInManager.h>
#include <dmf/platform/Class.h>

#include <chrono>
#include <future>
#include <memory>
#include <stdexcept>
#include <thread>

DMF_REGISTER_CLASS(AskingProvider)
{
    const auto answered = std::make_shared<std::promise<void>>();
    std::thread([answered] {
        static constexpr dmf::Protocol kOther("SomethingElse", {}, {});
        (void)ADMPlugInManager::sharedManager()->implementorForProtocol(kOther, {{"asking", true}});
        (void)ADMPlugInManager::sharedManager()->reports();
        answered->set_value();
    }).detach();
    if (answered->get_future().wait_for(std::chrono::seconds(30)) != std::future_status::ready)
        throw std::runtime_error("the plug-in manager does not answer");
    described.implements<ADMIOProvider>([] { return std::shared_ptr<ADMIOProvider>(); });
}
