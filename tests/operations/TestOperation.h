#pragma once

#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include <dmf/ADMInvocationCallback.h>
#include <dmf/ADMOperationQueue.h>
#include <dmf/ADMSchedulableOperation.h>

#include "support/FakeServiceInfo.h"

/// An operation that does what the test says, on a queue if there is one, and writes down what its service does with
/// it.
class TestOperation : public ADMSchedulableOperation {
public:
    using Work = std::function<std::shared_ptr<ADMCallback>(TestOperation&)>;

    TestOperation(Initializer&& initializer, Work work, std::weak_ptr<ADMOperationQueue> queue = {})
        : ADMSchedulableOperation(std::move(initializer)), work_(std::move(work)), queue_(std::move(queue))
    {
    }
    ~TestOperation() override
    {
        if (onDestruction)
            onDestruction();
    }
    std::function<void()> onDestruction, onCancel, onScheduling, onUnscheduling;
    std::vector<std::string> told;

    std::shared_ptr<ADMCallback> performOperation() override { return work_(*this); }
    void cancel() override
    {
        ADMSchedulableOperation::cancel();
        if (const auto kept = onCancel)
            kept();
    }
    void scheduleOperation() override
    {
        ADMSchedulableOperation::scheduleOperation();
        told.emplace_back("run");
        if (const auto queue = queue_.lock())
            queue->scheduleOperation(shared_from_this());
    }
    void scheduleInRunLoop(const std::shared_ptr<dmf::RunLoop>& runLoop, std::string_view mode) override
    {
        told.push_back("in " + std::string(mode));
        if (onScheduling)
            onScheduling();
        if (const auto queue = queue_.lock())
            queue->scheduleInRunLoop(runLoop, mode);
    }
    void removeFromRunLoop(const std::shared_ptr<dmf::RunLoop>& runLoop, std::string_view mode) override
    {
        told.push_back("out of " + std::string(mode));
        if (onUnscheduling)
            onUnscheduling();
        if (const auto queue = queue_.lock())
            queue->removeFromRunLoop(runLoop, mode);
    }

private:
    const Work work_;
    const std::weak_ptr<ADMOperationQueue> queue_;
};

/// One that is active already, as if a service had scheduled it.
inline std::shared_ptr<TestOperation> makeOperation(TestOperation::Work work)
{
    auto made = ADMSchedulableOperation::initWithServiceInfo<TestOperation>(std::make_shared<FakeServiceInfo>(),
                                                                            std::move(work));
    made->scheduleOperation();
    return made;
}

inline std::shared_ptr<ADMCallback> calling(std::function<void()> function)
{
    return ADMInvocationCallback::callbackWithInvocation(std::move(function));
}
