#pragma once

#include <memory>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include <dmf/ADMFunctionalServiceImp.h>
#include <dmf/IDMAuthenticableInterface.h>
#include <dmf/IDMSchedulableOperation.h>
#include <dmf/platform/RunLoop.h>

class ADMAuthenticationContextImpl;

/// Base of the functional services that do their work by operations: it schedules them on the client's run loop, lists
/// those under way, and runs one synchronously. Thread-safe.
///
/// The service is the delegate of the operations that are scheduled through it; they hold it weakly, and find their
/// service's class in it by std::dynamic_pointer_cast.
class DMF_EXPORT ADMOperationBasedFunctionalServiceImp : public ADMFunctionalServiceImp,
                                                         public IDMAuthenticableInterface,
                                                         public dmf::Delegate {
public:
    explicit ADMOperationBasedFunctionalServiceImp(Initializer&& initializer);
    ~ADMOperationBasedFunctionalServiceImp() override;

    /// The client's, held weakly; of the type that the concrete service names.
    [[nodiscard]] std::shared_ptr<dmf::Delegate> delegate() const;
    void setDelegate(const std::shared_ptr<dmf::Delegate>& delegate);

    /// Operations scheduled from now on report on `runLoop`, in this mode and the others in which the service is
    /// scheduled there. A service is scheduled on one run loop only: a second replaces the first and its modes, and
    /// none at all (null) forgets them. Without a mode only the run loop changes.
    void scheduleInRunLoop(const std::shared_ptr<dmf::RunLoop>& runLoop, std::optional<std::string_view> mode);
    /// Removing the last mode forgets the run loop too. Ignored for another run loop and without a mode.
    void removeFromRunLoop(const std::shared_ptr<dmf::RunLoop>& runLoop, std::optional<std::string_view> mode);
    /// The run loop on which the service is scheduled; empty when it is on none.
    [[nodiscard]] std::shared_ptr<dmf::RunLoop> runLoop() const;
    [[nodiscard]] std::set<std::string> runLoopModes() const;

    /// Makes the service the operation's delegate, binds the operation to the service's run loop in all its modes,
    /// lists it and begins its run. A service that is scheduled nowhere runs its operations as well; their outcome is
    /// reported nowhere. Ignored without an operation.
    virtual void scheduleOperation(const std::shared_ptr<IDMSchedulableOperation>& operation);
    /// Undoes `scheduleOperation`: the operation has no delegate, run loop and place in the list any more. It is not
    /// canceled.
    virtual void unscheduleOperation(const std::shared_ptr<IDMSchedulableOperation>& operation);
    void unscheduleAllOperations();
    /// The list alone; an operation is removed by identity.
    void addOperation(std::shared_ptr<IDMSchedulableOperation> operation);
    void removeOperation(const std::shared_ptr<IDMSchedulableOperation>& operation);
    [[nodiscard]] std::vector<std::shared_ptr<IDMSchedulableOperation>> operations() const;

    /// Runs the operation and returns once it is finished; its outcome is reported inside this call. Meanwhile the
    /// calling thread's run loop turns in `runLoopMode` alone, so that nothing else of the client's happens (as long as
    /// the operation does not bind a queue there that reports for others too). The operation neither gets a delegate
    /// nor is it listed. Service and operation are kept meanwhile; an override that goes on after this one keeps them
    /// too. Blocks without a limit: an operation that never finishes never returns; that it is finished is noticed at
    /// once when it reports something, else within `runQuantum`. What a callback throws ends the call and reaches the
    /// caller. Ignored without an operation. Not for one that is scheduled and not finished yet.
    virtual void performOperation(const std::shared_ptr<IDMSchedulableOperation>& operation);

    /// How often `performOperation` looks, in seconds: 0.5.
    [[nodiscard]] virtual double runQuantum() const;
    /// How long operations may take, in seconds: 0.0, without a limit. For concrete services; `performOperation` does
    /// not consult it.
    [[nodiscard]] virtual double timeout() const;
    /// The mode of synchronous operations: "com.ql.dmf.runloop.mode.sync.operation".
    [[nodiscard]] virtual std::string runLoopMode() const;

    /// An ADMAuthenticationContextImpl for the service info, made on first use; always the same.
    [[nodiscard]] std::shared_ptr<IDMAuthenticationContext> authenticationContext() override;

private:
    std::weak_ptr<dmf::Delegate> delegate_;                               // guarded by lock()
    std::shared_ptr<dmf::RunLoop> runLoop_;                               // guarded by lock()
    std::set<std::string> runLoopModes_;                                  // guarded by lock()
    std::vector<std::shared_ptr<IDMSchedulableOperation>> operations_;    // guarded by lock()
    std::shared_ptr<ADMAuthenticationContextImpl> authenticationContext_; // guarded by lock()
};
