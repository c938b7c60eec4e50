#pragma once

#include <memory>
#include <mutex>
#include <utility>

#include <dmf/IDMSchedulableOperation.h>

/// Base of every operation: it keeps what an operation is asked for and what became of it. A concrete operation
/// supplies `performOperation` and the binding to run loops: it binds the queue that it runs on, which it holds weakly,
/// since the queue holds it. A mode in which a queue is bound gets the callbacks of all its operations. Those that
/// share a queue therefore count who wants a mode before they take it out, and one whose caller waits has a queue of
/// its own:
///
///     class StatusOperation final : public ADMSchedulableOperation {
///     public:
///         StatusOperation(Initializer&& initializer, const std::shared_ptr<ADMOperationQueue>& queue);
///         void scheduleOperation() override;   // the inherited one, then queue->scheduleOperation(shared_from_this())
///         std::shared_ptr<ADMCallback> performOperation() override;
///     };
///     auto operation = ADMSchedulableOperation::initWithServiceInfo<StatusOperation>(serviceInfo, queue);
///
/// Thread-safe.
class DMF_EXPORT ADMSchedulableOperation : public IDMSchedulableOperation,
                                           public std::enable_shared_from_this<ADMSchedulableOperation> {
public:
    /// What an operation starts from. Only `initWithServiceInfo` makes one, so there is no operation without a service.
    class Initializer {
        friend class ADMSchedulableOperation;
        explicit Initializer(std::shared_ptr<ADMServiceInfo> serviceInfo) : serviceInfo_(std::move(serviceInfo)) {}
        std::shared_ptr<ADMServiceInfo> serviceInfo_;
    };
    /// An operation of the class `Operation`, whose constructor gets an Initializer and the further arguments; empty
    /// without a service info.
    template <class Operation = ADMSchedulableOperation, class... Arguments>
    [[nodiscard]] static std::shared_ptr<Operation> initWithServiceInfo(std::shared_ptr<ADMServiceInfo> serviceInfo,
                                                                        Arguments&&... arguments)
    {
        if (!serviceInfo)
            return nullptr;
        return std::make_shared<Operation>(Initializer(std::move(serviceInfo)), std::forward<Arguments>(arguments)...);
    }
    explicit ADMSchedulableOperation(Initializer&& initializer);
    ~ADMSchedulableOperation() override;
    ADMSchedulableOperation(const ADMSchedulableOperation&) = delete;
    ADMSchedulableOperation& operator=(const ADMSchedulableOperation&) = delete;

    [[nodiscard]] std::shared_ptr<ADMServiceInfo> serviceInfo() const override { return serviceInfo_; }
    [[nodiscard]] std::shared_ptr<dmf::Delegate> delegate() const override;
    void setDelegate(const std::shared_ptr<dmf::Delegate>& delegate) override;
    [[nodiscard]] dmf::Value userInfo() const override;
    void setUserInfo(dmf::Value userInfo) override;
    [[nodiscard]] std::optional<dmf::Date> limitDate() const override;
    void setLimitDate(std::optional<dmf::Date> date) override;
    [[nodiscard]] dmf::Dictionary error() const override;
    void setError(dmf::Dictionary error) override;
    [[nodiscard]] std::shared_ptr<IDMAuthenticationContext> authenticationContext() const override;
    void setAuthenticationContext(std::shared_ptr<IDMAuthenticationContext> context) override;

    [[nodiscard]] bool isActive() const override;
    void setActive(bool isActive) override;
    [[nodiscard]] bool isFinished() const override;
    void setFinished(bool isFinished) override;
    [[nodiscard]] bool isOperationSucceed() const override;
    void setOperationSucceed(bool isSucceeded) override;
    [[nodiscard]] bool isCanceled() const override;
    void setCanceled(bool isCanceled) override;

    void scheduleOperation() override;
    void cancel() override;

    /// Left to the concrete operation: these throw dmf::UnrecognizedOperation.
    void scheduleInRunLoop(const std::shared_ptr<dmf::RunLoop>& runLoop, std::string_view mode) override;
    void removeFromRunLoop(const std::shared_ptr<dmf::RunLoop>& runLoop, std::string_view mode) override;
    [[nodiscard]] std::shared_ptr<ADMCallback> performOperation() override;

    [[nodiscard]] std::string description() const override;

private:
    struct Flags {
        bool isActive = false;
        bool isFinished = false;
        bool isSucceeded = false;
        bool isCanceled = false;
    };
    [[nodiscard]] bool flag(bool Flags::*which) const;
    void setFlag(bool Flags::*which, bool value);

    const std::shared_ptr<ADMServiceInfo> serviceInfo_;
    mutable std::mutex lock_;
    std::weak_ptr<dmf::Delegate> delegate_;                           // guarded by lock_
    dmf::Value userInfo_;                                             // guarded by lock_
    std::optional<dmf::Date> limitDate_;                              // guarded by lock_
    dmf::Dictionary error_;                                           // guarded by lock_
    Flags flags_;                                                     // guarded by lock_
    std::shared_ptr<IDMAuthenticationContext> authenticationContext_; // guarded by lock_
};
