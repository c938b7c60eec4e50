#include <dmf/ADMInvocationCallback.h>

ADMInvocationCallback::ADMInvocationCallback(std::function<void()> invocation) : invocation_(std::move(invocation)) {}

std::shared_ptr<ADMInvocationCallback> ADMInvocationCallback::initWithInvocation(std::function<void()> invocation)
{
    if (!invocation)
        return nullptr;
    return std::shared_ptr<ADMInvocationCallback>(new ADMInvocationCallback(std::move(invocation)));
}

ADMInvocationCallback::~ADMInvocationCallback() = default;

void ADMInvocationCallback::performCallback()
{
    invocation_();
}
