#pragma once

#include <functional>
#include <memory>
#include <utility>

#include <dmf/ADMCallback.h>

/// The usual callback: it calls a function. Immutable; the function decides on which threads it may be performed.
class DMF_EXPORT ADMInvocationCallback final : public ADMCallback {
public:
    /// Both give nothing when the invocation is empty.
    [[nodiscard]] static std::shared_ptr<ADMInvocationCallback> initWithInvocation(std::function<void()> invocation);
    [[nodiscard]] static std::shared_ptr<ADMInvocationCallback> callbackWithInvocation(std::function<void()> invocation)
    {
        return initWithInvocation(std::move(invocation));
    }
    ~ADMInvocationCallback() override;
    ADMInvocationCallback(const ADMInvocationCallback&) = delete;
    ADMInvocationCallback& operator=(const ADMInvocationCallback&) = delete;

    [[nodiscard]] const std::function<void()>& invocation() const noexcept { return invocation_; }
    void performCallback() override;

private:
    explicit ADMInvocationCallback(std::function<void()> invocation);
    const std::function<void()> invocation_;
};
