#pragma once

#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include <dmf/ADMServiceResolver.h>
#include <dmf/platform/Export.h>
#include <dmf/platform/RunLoop.h>
#include <dmf/platform/Value.h>

namespace dmf::internal {
struct ResolverStart;
}

/// What every resolver keeps: its state under one lock, and the timer for its time-out. To be made by
/// std::make_shared. Thread-safe; destruction stops the resolution, on whichever thread it happens.
///
///     idle ──resolveService──► resolving ──setResolving(false), timeoutDidFire──► ended
///                                  └──stop──► stopped
///
/// Each `resolveService` makes a start of its own, and all that is asked and set below belongs to the latest one. The
/// exception: what works for a start (`findService` on its thread, `timeoutDidFire`, the delegate's call) asks and sets
/// what belongs to that one, even when there is a later one meanwhile. So nothing can be taken for the later one's.
class DMF_EXPORT ADMBaseServiceResolver : public ADMServiceResolver,
                                          public std::enable_shared_from_this<ADMBaseServiceResolver> {
public:
    ADMBaseServiceResolver();
    ~ADMBaseServiceResolver() override;
    ADMBaseServiceResolver(const ADMBaseServiceResolver&) = delete;
    ADMBaseServiceResolver& operator=(const ADMBaseServiceResolver&) = delete;

    /// A subclass states its own; this one throws dmf::UnrecognizedOperation.
    [[nodiscard]] static std::string connectionType();

    /// Takes over what is to be done; drops an earlier start, results included. Starts nothing by itself.
    void resolveService(std::shared_ptr<ADMServiceInfo> service, double timeout, const dmf::Dictionary& parameters,
                        std::shared_ptr<dmf::RunLoop> runLoop, const std::vector<std::string>& modes) override;
    void stop() override;

    [[nodiscard]] dmf::Dictionary lastError() const override;
    [[nodiscard]] dmf::Dictionary resolvedInfo() const override;
    [[nodiscard]] std::shared_ptr<IDMDevice> resolvedDevice() const override;
    [[nodiscard]] std::shared_ptr<ADMServiceResolverDelegate> delegate() const override;
    void setDelegate(const std::shared_ptr<ADMServiceResolverDelegate>& delegate) override;

    [[nodiscard]] dmf::Dictionary parameters() const;
    /// Empty as well when the run loop's thread has ended.
    [[nodiscard]] std::shared_ptr<dmf::RunLoop> runLoop() const;
    [[nodiscard]] std::vector<std::string> modes() const;
    /// In seconds.
    [[nodiscard]] double timeout() const;
    [[nodiscard]] bool isResolving() const;

    /// Whoever calls it with the lock held sees to it that the device before does not go under the lock.
    void setResolvedInfo(dmf::Dictionary info, std::shared_ptr<IDMDevice> device);
    void setLastError(dmf::Dictionary error);
    void setParameters(dmf::Dictionary parameters);
    void setModes(std::vector<std::string> modes);
    void setRunLoop(const std::shared_ptr<dmf::RunLoop>& runLoop);
    void setTimeout(double timeout);
    void setResolving(bool resolving);

    /// Arms the timer that calls `timeoutDidFire` on the run loop after the time-out, in place of an earlier one; does
    /// not arm one without a run loop or a mode. A time-out that is negative or no number has passed at once; an
    /// infinite one never passes.
    void setupTimer();
    void removeTimer();
    /// Ends the resolution with the error "Resolving timed out.".
    virtual void timeoutDidFire();

    /// The object's own lock, recursive: several operations as one.
    void lock() const { lock_.lock(); }
    void unlock() const { lock_.unlock(); }

protected:
    /// Calls the delegate, which may let go of this resolver; not to be called with the lock held.
    void tellDelegate();
    /// The report {kDMErrorCode: -1, kDMErrorDescription: `description`}.
    [[nodiscard]] static dmf::Dictionary errorWithDescription(std::string_view description);

    /// For the library's own resolvers: the start that the calling thread works for, otherwise the latest one.
    [[nodiscard]] std::shared_ptr<dmf::internal::ResolverStart> start() const;
    [[nodiscard]] bool isToBeTold(const dmf::internal::ResolverStart& start) const;

private:
    [[nodiscard]] bool isTimer(const dmf::RunLoopTimer& timer, const dmf::internal::ResolverStart& start) const;
    void drop(const std::shared_ptr<dmf::internal::ResolverStart>& start);

    mutable std::recursive_mutex lock_; // guards all below, and what the start holds
    std::weak_ptr<ADMServiceResolverDelegate> delegate_;
    std::shared_ptr<dmf::internal::ResolverStart> start_; // never null
};
