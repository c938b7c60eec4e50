#pragma once

#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include <dmf/platform/Date.h>
#include <dmf/platform/Export.h>
#include <dmf/platform/Protocol.h>
#include <dmf/platform/RunLoop.h>
#include <dmf/platform/Value.h>

class ADMCallback;
class ADMServiceInfo;
class IDMAuthenticationContext;

namespace dmf {

/// Whoever an operation or a functional service reports to, without saying what: each concrete class names the type
/// that it talks to, which derives from this one, and finds it in its delegate by std::dynamic_pointer_cast. A delegate
/// of another type is not told anything.
class DMF_EXPORT Delegate {
public:
    virtual ~Delegate();

protected:
    Delegate() = default;
    Delegate(const Delegate&) = default;
    Delegate& operator=(const Delegate&) = default;
};

} // namespace dmf

/// One piece of work on a service's device: it is scheduled, runs on a background thread, and reports its outcome on a
/// run loop of the client's. It can be scheduled again when it has finished. Thread-safe.
///
/// `isActive` says that a run has been asked for, `isFinished` that it has ended, `isOperationSucceed` and `error` how,
/// `isCanceled` that nobody wants its outcome any more. Only `scheduleOperation` and `cancel` set any of them by
/// themselves; that a run has ended is for the concrete operation to say, for a canceled one as well.
class DMF_EXPORT IDMSchedulableOperation {
public:
    [[nodiscard]] static const dmf::Protocol& protocol();
    virtual ~IDMSchedulableOperation();

    [[nodiscard]] virtual std::shared_ptr<ADMServiceInfo> serviceInfo() const = 0;
    /// Held weakly.
    [[nodiscard]] virtual std::shared_ptr<dmf::Delegate> delegate() const = 0;
    virtual void setDelegate(const std::shared_ptr<dmf::Delegate>& delegate) = 0;
    /// Anything of the client's.
    [[nodiscard]] virtual dmf::Value userInfo() const = 0;
    virtual void setUserInfo(dmf::Value userInfo) = 0;
    /// A deadline that a service has set; it is for the operation to heed it.
    [[nodiscard]] virtual std::optional<dmf::Date> limitDate() const = 0;
    virtual void setLimitDate(std::optional<dmf::Date> date) = 0;
    /// The error record of the last run (kDMErrorCode and the other keys of DMKeys.h); empty when there is none.
    [[nodiscard]] virtual dmf::Dictionary error() const = 0;
    virtual void setError(dmf::Dictionary error) = 0;
    /// The credentials that the operation may use; may be empty.
    [[nodiscard]] virtual std::shared_ptr<IDMAuthenticationContext> authenticationContext() const = 0;
    virtual void setAuthenticationContext(std::shared_ptr<IDMAuthenticationContext> context) = 0;

    [[nodiscard]] virtual bool isActive() const = 0;
    virtual void setActive(bool isActive) = 0;
    [[nodiscard]] virtual bool isFinished() const = 0;
    virtual void setFinished(bool isFinished) = 0;
    [[nodiscard]] virtual bool isOperationSucceed() const = 0;
    virtual void setOperationSucceed(bool isSucceeded) = 0;
    [[nodiscard]] virtual bool isCanceled() const = 0;
    virtual void setCanceled(bool isCanceled) = 0;

    /// Begins a new run: active, neither finished nor succeeded nor canceled, without error. A service calls it before
    /// it hands the operation to a queue.
    virtual void scheduleOperation() = 0;
    /// Marks an active operation as canceled, and returns at once: a queue does not start it any more, and drops the
    /// callback of one that runs. Ignored while the operation is not active.
    virtual void cancel() = 0;

    /// Where the outcome is reported.
    virtual void scheduleInRunLoop(const std::shared_ptr<dmf::RunLoop>& runLoop, std::string_view mode) = 0;
    virtual void removeFromRunLoop(const std::shared_ptr<dmf::RunLoop>& runLoop, std::string_view mode) = 0;

    /// Does the work, on the thread of the queue, and blocks as long as it takes. Gives what is to be done on the
    /// client's run loop, or nothing. A std::exception ends this run only; anything else ends the program.
    [[nodiscard]] virtual std::shared_ptr<ADMCallback> performOperation() = 0;

    [[nodiscard]] virtual std::string description() const = 0;
};
