#include <dmf/ADMSchedulableOperation.h>

#include <dmf/platform/Error.h>
#include <dmf/platform/Format.h>

#include "modelinfo/tree/TypeName.h"

ADMSchedulableOperation::ADMSchedulableOperation(Initializer&& initializer)
    : serviceInfo_(std::move(initializer.serviceInfo_))
{
}

ADMSchedulableOperation::~ADMSchedulableOperation() = default;

// The setters swap, so that an old value goes with the argument, outside the lock, whatever it does as it goes.

std::shared_ptr<dmf::Delegate> ADMSchedulableOperation::delegate() const
{
    std::lock_guard guard(lock_);
    return delegate_.lock();
}

void ADMSchedulableOperation::setDelegate(const std::shared_ptr<dmf::Delegate>& delegate)
{
    std::lock_guard guard(lock_);
    delegate_ = delegate;
}

dmf::Value ADMSchedulableOperation::userInfo() const
{
    std::lock_guard guard(lock_);
    return userInfo_;
}

void ADMSchedulableOperation::setUserInfo(dmf::Value userInfo)
{
    std::lock_guard guard(lock_);
    std::swap(userInfo_, userInfo);
}

std::optional<dmf::Date> ADMSchedulableOperation::limitDate() const
{
    std::lock_guard guard(lock_);
    return limitDate_;
}

void ADMSchedulableOperation::setLimitDate(std::optional<dmf::Date> date)
{
    std::lock_guard guard(lock_);
    limitDate_ = date;
}

dmf::Dictionary ADMSchedulableOperation::error() const
{
    std::lock_guard guard(lock_);
    return error_;
}

void ADMSchedulableOperation::setError(dmf::Dictionary error)
{
    std::lock_guard guard(lock_);
    std::swap(error_, error);
}

std::shared_ptr<IDMAuthenticationContext> ADMSchedulableOperation::authenticationContext() const
{
    std::lock_guard guard(lock_);
    return authenticationContext_;
}

void ADMSchedulableOperation::setAuthenticationContext(std::shared_ptr<IDMAuthenticationContext> context)
{
    std::lock_guard guard(lock_);
    authenticationContext_.swap(context);
}

bool ADMSchedulableOperation::flag(bool Flags::*which) const
{
    std::lock_guard guard(lock_);
    return flags_.*which;
}

void ADMSchedulableOperation::setFlag(bool Flags::*which, bool value)
{
    std::lock_guard guard(lock_);
    flags_.*which = value;
}

bool ADMSchedulableOperation::isActive() const
{
    return flag(&Flags::isActive);
}

void ADMSchedulableOperation::setActive(bool isActive)
{
    setFlag(&Flags::isActive, isActive);
}

bool ADMSchedulableOperation::isFinished() const
{
    return flag(&Flags::isFinished);
}

void ADMSchedulableOperation::setFinished(bool isFinished)
{
    setFlag(&Flags::isFinished, isFinished);
}

bool ADMSchedulableOperation::isOperationSucceed() const
{
    return flag(&Flags::isSucceeded);
}

void ADMSchedulableOperation::setOperationSucceed(bool isSucceeded)
{
    setFlag(&Flags::isSucceeded, isSucceeded);
}

bool ADMSchedulableOperation::isCanceled() const
{
    return flag(&Flags::isCanceled);
}

void ADMSchedulableOperation::setCanceled(bool isCanceled)
{
    setFlag(&Flags::isCanceled, isCanceled);
}

void ADMSchedulableOperation::scheduleOperation()
{
    dmf::Dictionary error; // the old one goes outside the lock
    // In one step: a cancel that comes meanwhile is for the run before or for this one, never for half of it.
    std::lock_guard guard(lock_);
    flags_ = {.isActive = true};
    std::swap(error_, error);
}

void ADMSchedulableOperation::cancel()
{
    std::lock_guard guard(lock_);
    if (flags_.isActive)
        flags_.isCanceled = true;
}

void ADMSchedulableOperation::scheduleInRunLoop(const std::shared_ptr<dmf::RunLoop>&, std::string_view)
{
    throw dmf::UnrecognizedOperation("ADMSchedulableOperation", "scheduleInRunLoop:forMode:");
}

void ADMSchedulableOperation::removeFromRunLoop(const std::shared_ptr<dmf::RunLoop>&, std::string_view)
{
    throw dmf::UnrecognizedOperation("ADMSchedulableOperation", "removeFromRunLoop:forMode:");
}

std::shared_ptr<ADMCallback> ADMSchedulableOperation::performOperation()
{
    throw dmf::UnrecognizedOperation("ADMSchedulableOperation", "performOperation");
}

/// The text has no closing brace: that is its form.
std::string ADMSchedulableOperation::description() const
{
    const auto textOf = [](const auto& object) {
        return dmf::formatted("<%@: %p>", dmf::internal::typeName(typeid(object)), dynamic_cast<const void*>(&object));
    };
    const auto answer = [](bool is) { return is ? "YES" : "NO"; };
    std::unique_lock guard(lock_);
    const auto delegate = delegate_.lock();
    const auto userInfo = userInfo_;
    const auto error = error_;
    const auto flags = flags_;
    guard.unlock();
    return dmf::formatted("%@ { delegate = %@, userInfo = %@, error = %@, isActive = %@, isFinished = %@, "
                          "isSucceeded = %@, isCanceled = %@",
                          textOf(*this), delegate ? std::optional(textOf(*delegate)) : std::nullopt, userInfo,
                          error.empty() ? std::nullopt : std::optional(error.description()), answer(flags.isActive),
                          answer(flags.isFinished), answer(flags.isSucceeded), answer(flags.isCanceled));
}
