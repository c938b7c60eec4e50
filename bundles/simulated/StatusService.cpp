#include <charconv>

#include <dmf/ADMDataChannelFactory.h>
#include <dmf/ADMServiceInfo.h>
#include <dmf/DMKeys.h>
#include <dmf/IDMDevice.h>
#include <dmf/platform/Class.h>

#include "ServiceOperation.h"

namespace dmf::simulated {

namespace {

constexpr double kUsualPollingInterval = 1; // seconds

/// The device search of an operation, which ends when the operation is canceled.
class SearchHandler final : public IDMDeviceHandler {
public:
    explicit SearchHandler(std::function<bool()> isCanceled) : isCanceled_(std::move(isCanceled)) {}
    bool isCanceledForDevice(const IDMDevice*) override { return isCanceled_(); }

private:
    const std::function<bool()> isCanceled_;
};

class DeviceOperation : public ServiceOperation {
public:
    using ServiceOperation::ServiceOperation;

protected:
    [[nodiscard]] std::shared_ptr<IDMDevice> findDevice(Run run)
    {
        return serviceInfo()->locateDeviceWithHandler(handler(run));
    }
    [[nodiscard]] std::shared_ptr<IDMDeviceHandler> handler(Run run)
    {
        return std::make_shared<SearchHandler>([this, run] { return !isWanted(run) || secondsLeft() == 0; });
    }
    [[nodiscard]] Outcome notFound() const
    {
        return secondsLeft() == 0 ? tooLate() : failure(ChannelError::failed, "The device is not found.");
    }
    [[nodiscard]] static Outcome tooLate() { return failure(ChannelError::timedOut, "The device takes too long."); }
};

class StatusOperation final : public ServiceOperation {
public:
    using ServiceOperation::ServiceOperation;

protected:
    Outcome work(Run run) override
    {
        const auto channel =
            ADMDataChannelFactory::init()->newDuplexDataChannelWithServiceInfo(serviceInfo(), "Status");
        const auto delegate = std::make_shared<ADMDuplexDataChannelDelegate>();
        delegate->shouldCancelRead =
            delegate->shouldCancelWrite = [this, run](ADMDuplexDataChannel&) { return !isWanted(run); };
        if (channel)
            channel->setDelegate(delegate);
        if (!channel || !channel->open())
            return failure(ChannelError::failed, "The device cannot be reached.");
        constexpr std::uint32_t longestAnswer = 4096;
        Outcome outcome;
        Data answer;
        if (channel->writeData(Data::fromText("status\n"), secondsLeft(), &outcome.error) &&
            channel->readDataUpToLength(answer, longestAnswer, secondsLeft(), &outcome.error))
            outcome.result = std::string(answer.text());
        channel->close();
        return outcome;
    }
};

class SelfTestOperation final : public DeviceOperation {
public:
    using DeviceOperation::DeviceOperation;

protected:
    /// The device's URI says how long its test takes, in milliseconds, and whether it fails.
    Outcome work(Run run) override
    {
        if (!findDevice(run))
            return notFound();
        const auto script = serviceInfo()->connectionParams();
        const std::string delay = script.string("selfTestDelay").value_or("");
        std::uint32_t milliseconds = 0;
        std::from_chars(delay.data(), delay.data() + delay.size(), milliseconds);
        if (!wait(run, milliseconds / 1000.0))
            return tooLate();
        if (script.string("selfTestFails").value_or("no") != "no")
            return failure(ChannelError::failed, "The self test has failed.");
        return {"passed", {}};
    }
};

class ParametersOperation final : public DeviceOperation {
public:
    ParametersOperation(Initializer&& initializer, std::weak_ptr<CountedQueue> queue, std::uint32_t count,
                        double interval)
        : DeviceOperation(std::move(initializer), std::move(queue)), count_(count), interval_(interval)
    {
    }

protected:
    Outcome work(Run run) override
    {
        const auto device = findDevice(run);
        if (!device)
            return notFound();
        Outcome outcome;
        for (std::uint32_t i = 0; i < count_; ++i) {
            if (i > 0 && !wait(run, interval_))
                return tooLate();
            auto parameters = device->retrieveParameters({}, handler(run));
            outcome.result = parameters;
            report(run, std::move(parameters));
        }
        return outcome;
    }

private:
    const std::uint32_t count_;
    const double interval_;
};

/// The queue of an operation whose caller waits. The queue that the others share, bound to the mode in which the caller
/// waits, would bring their reports into that mode as well; nor does the caller wait until they have run.
class OwnQueue {
public:
    OwnQueue(std::shared_ptr<ServiceOperation> operation, const std::shared_ptr<CountedQueue>& shared)
        : operation_(std::move(operation)), shared_(shared)
    {
        if (operation_)
            operation_->setQueue(own_);
    }
    ~OwnQueue()
    {
        if (operation_)
            operation_->setQueue(shared_);
    }
    OwnQueue(const OwnQueue&) = delete;
    OwnQueue& operator=(const OwnQueue&) = delete;

private:
    const std::shared_ptr<ServiceOperation> operation_; // none where the operation is somebody else's
    const std::shared_ptr<CountedQueue>& shared_;
    const std::shared_ptr<CountedQueue> own_ = std::make_shared<CountedQueue>();
};

class StatusService final : public SimulatedStatusService, public OperationOwner {
public:
    using SimulatedStatusService::SimulatedStatusService;

    std::shared_ptr<SimulatedOperation> newStatusOperation() override { return make<StatusOperation>(); }
    std::shared_ptr<SimulatedOperation> newSelfTestOperation() override { return make<SelfTestOperation>(); }
    std::shared_ptr<SimulatedOperation> newParametersOperation(std::uint32_t count) override
    {
        return make<ParametersOperation>(count,
                                         seconds(kDMParameterPollingIntervalKey).value_or(kUsualPollingInterval));
    }

    double timeout() const override
    {
        return seconds(kDMParameterOperationTimeoutKey).value_or(SimulatedStatusService::timeout());
    }
    void scheduleOperation(const std::shared_ptr<IDMSchedulableOperation>& operation) override
    {
        setLimit(operation);
        SimulatedStatusService::scheduleOperation(operation);
    }
    void performOperation(const std::shared_ptr<IDMSchedulableOperation>& operation) override
    {
        // What the client does meanwhile may be the end of either.
        const auto keptAlive = shared_from_this();
        const auto performed = operation;
        setLimit(performed);
        const OwnQueue own(std::dynamic_pointer_cast<ServiceOperation>(performed), queue_);
        SimulatedStatusService::performOperation(performed);
        if (performed)
            noteError(performed->error());
    }

    void operationDidFinish(ServiceOperation& operation) override
    {
        noteError(operation.error());
        unscheduleOperation(operation.shared_from_this());
        if (const auto client = this->client(); client && client->operationDidFinish)
            client->operationDidFinish(*this, operation);
    }
    void operationWasCanceled(ServiceOperation& operation) override
    {
        unscheduleOperation(operation.shared_from_this());
    }
    void operationDidReadParameters(ServiceOperation& operation, const Dictionary& parameters) override
    {
        if (const auto client = this->client(); client && client->operationDidReadParameters)
            client->operationDidReadParameters(*this, operation, parameters);
    }

private:
    template <class Operation, class... Arguments>
    std::shared_ptr<SimulatedOperation> make(Arguments... arguments)
    {
        auto operation = ADMSchedulableOperation::initWithServiceInfo<Operation>(serviceInfo(), queue_, arguments...);
        operation->setAuthenticationContext(authenticationContext());
        return operation;
    }
    [[nodiscard]] std::optional<double> seconds(std::string_view key) const
    {
        const auto parameters = this->parameters();
        const auto* const number = parameters[key].asNumber();
        return number && number->doubleValue() > 0 ? std::optional(number->doubleValue()) : std::nullopt;
    }
    [[nodiscard]] std::shared_ptr<SimulatedStatusDelegate> client() const
    {
        return std::dynamic_pointer_cast<SimulatedStatusDelegate>(delegate());
    }
    void setLimit(const std::shared_ptr<IDMSchedulableOperation>& operation) const
    {
        const double limit = timeout();
        if (operation)
            operation->setLimitDate(limit > 0 ? std::optional(Date::afterNow(limit)) : std::nullopt);
    }
    void noteError(const Dictionary& error)
    {
        if (!error.empty())
            setLastError(error);
    }

    /// Goes with the service: what is under way then is canceled.
    const std::shared_ptr<CountedQueue> queue_ = std::make_shared<CountedQueue>();
};

std::shared_ptr<StatusService> makeService(std::shared_ptr<ADMServiceInfo> serviceInfo)
{
    return ADMFunctionalServiceImp::initWithServiceInfo<StatusService>(std::move(serviceInfo));
}

} // namespace

} // namespace dmf::simulated

DMF_REGISTER_CLASS(DMFSimulatedStatusService)
{
    described.implements<ADMInterfaceInitialization>(&dmf::simulated::makeService);
    described.implements<dmf::simulated::SimulatedStatusService>(&dmf::simulated::makeService);
}
