#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string_view>

#include <dmf/ADMOperationBasedFunctionalServiceImp.h>
#include <dmf/ADMSchedulableOperation.h>

namespace dmf::simulated {

class SimulatedStatusService;

/// An operation of a SimulatedStatusService, to be scheduled, performed and canceled through it. It is finished once
/// its outcome has been reported, or at once when it is canceled; it can be scheduled again. Thread-safe.
class SimulatedOperation : public ADMSchedulableOperation {
public:
    using ADMSchedulableOperation::ADMSchedulableOperation;
    /// What the last run has found; null when it has found nothing (see `error`).
    [[nodiscard]] virtual Value result() const = 0;
};

/// What a client is told of the operations that it schedules, on the run loop on which the service is scheduled. Each
/// may be empty. Canceled operations tell nothing.
struct SimulatedStatusDelegate : Delegate {
    /// The operation has succeeded or failed, as it says itself, and is no longer listed by the service.
    std::function<void(SimulatedStatusService&, SimulatedOperation&)> operationDidFinish;
    /// One of the polls of a parameters operation.
    std::function<void(SimulatedStatusService&, SimulatedOperation&, const Dictionary&)> operationDidReadParameters;
};

/// Asks a simulated device how it is. An operation ends with the error `dmf::ChannelError::timedOut` when it takes
/// longer than the parameter kDMParameterOperationTimeoutKey says, in seconds; without it there is no limit.
/// Its delegate is a SimulatedStatusDelegate. Thread-safe.
class SimulatedStatusService : public ADMOperationBasedFunctionalServiceImp {
public:
    using Factory = std::shared_ptr<SimulatedStatusService>(std::shared_ptr<ADMServiceInfo> serviceInfo);
    [[nodiscard]] static const Protocol& protocol()
    {
        static const Protocol* const adopted[] = {&ADMInterface::protocol()};
        static constexpr std::string_view operations[] = {"newStatusOperation", "newSelfTestOperation",
                                                          "newParametersOperationWithCount:"};
        static const Protocol described("SimulatedStatusService", adopted, operations);
        return described;
    }
    using ADMOperationBasedFunctionalServiceImp::ADMOperationBasedFunctionalServiceImp;

    /// Asks over the channel "Status"; its result is the text with which the device answers.
    [[nodiscard]] virtual std::shared_ptr<SimulatedOperation> newStatusOperation() = 0;
    /// Has the device test itself; its result is "passed".
    [[nodiscard]] virtual std::shared_ptr<SimulatedOperation> newSelfTestOperation() = 0;
    /// Asks for the device's parameters `count` times, every kDMParameterPollingIntervalKey seconds (1 second without
    /// that parameter); its result is the last answer.
    [[nodiscard]] virtual std::shared_ptr<SimulatedOperation> newParametersOperation(std::uint32_t count) = 0;
};

} // namespace dmf::simulated
