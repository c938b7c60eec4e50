#include <dmf/ADMCallback.h>
#include <dmf/IDMAuthenticableInterface.h>
#include <dmf/IDMSchedulableOperation.h>

// The descriptors of the interfaces of operations and of services that have them. All constant data.
namespace {

constexpr std::string_view kCallbackOperations[] = {"performCallback"};
constexpr dmf::Protocol kCallback("ADMCallback", {}, kCallbackOperations);

constexpr std::string_view kOperationOperations[] = {
    "serviceInfo",
    "delegate",
    "setDelegate:",
    "userInfo",
    "setUserInfo:",
    "limitDate",
    "setLimitDate:",
    "error",
    "setError:",
    "authenticationContext",
    "setAuthenticationContext:",
    "isActive",
    "setActive:",
    "isFinished",
    "setFinished:",
    "isOperationSucceed",
    "setOperationSucceed:",
    "isCanceled",
    "setCanceled:",
    "scheduleOperation",
    "cancel",
    "scheduleInRunLoop:forMode:",
    "removeFromRunLoop:forMode:",
    "performOperation",
};
constexpr dmf::Protocol kOperation("IDMSchedulableOperation", {}, kOperationOperations);

constexpr std::string_view kAuthenticableOperations[] = {"authenticationContext"};
constexpr dmf::Protocol kAuthenticable("IDMAuthenticableInterface", {}, kAuthenticableOperations);

} // namespace

const dmf::Protocol& ADMCallback::protocol()
{
    return kCallback;
}

ADMCallback::~ADMCallback() = default;

const dmf::Protocol& IDMSchedulableOperation::protocol()
{
    return kOperation;
}

IDMSchedulableOperation::~IDMSchedulableOperation() = default;

const dmf::Protocol& IDMAuthenticableInterface::protocol()
{
    return kAuthenticable;
}

IDMAuthenticableInterface::~IDMAuthenticableInterface() = default;

dmf::Delegate::~Delegate() = default;
