/// Operations through an operation queue, their callbacks coming back on a run loop: in batches and one by one, beside
/// the barest hand-over there is to a thread and back; and what it costs to run one operation while its caller waits.

#include <dmf/ADMInvocationCallback.h>
#include <dmf/ADMOperationBasedFunctionalServiceImp.h>
#include <dmf/ADMOperationQueue.h>
#include <dmf/ADMSchedulableOperation.h>
#include <dmf/ADMServiceInfoImp.h>

#include <condition_variable>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <thread>

#include <benchmark/benchmark.h>

using dmf::Date;
using dmf::RunLoop;

namespace {

constexpr const char* kMode = "bench";
constexpr int kBatch = 1'000;

std::shared_ptr<ADMServiceInfo> serviceInfo()
{
    static const std::shared_ptr<ADMServiceInfo> info =
        ADMServiceInfoImp::serviceInfoWithURI("socket://192.0.2.1:9100", "com.ql.printer");
    return info;
}

/// Does nothing, and reports that it is finished.
class EmptyOperation final : public ADMSchedulableOperation {
public:
    EmptyOperation(Initializer&& initializer, const std::shared_ptr<ADMOperationQueue>& queue,
                   std::function<void()> report)
        : ADMSchedulableOperation(std::move(initializer)), queue_(queue), report_(std::move(report))
    {
    }
    void scheduleOperation() override
    {
        ADMSchedulableOperation::scheduleOperation();
        queue_.lock()->scheduleOperation(shared_from_this());
    }
    void scheduleInRunLoop(const std::shared_ptr<RunLoop>& runLoop, std::string_view mode) override
    {
        queue_.lock()->scheduleInRunLoop(runLoop, mode);
    }
    void removeFromRunLoop(const std::shared_ptr<RunLoop>& runLoop, std::string_view mode) override
    {
        queue_.lock()->removeFromRunLoop(runLoop, mode);
    }
    std::shared_ptr<ADMCallback> performOperation() override
    {
        return ADMInvocationCallback::callbackWithInvocation(
            [self = std::static_pointer_cast<EmptyOperation>(shared_from_this())] {
                self->setOperationSucceed(true);
                self->setFinished(true);
                self->report_();
            });
    }

private:
    const std::weak_ptr<ADMOperationQueue> queue_;
    const std::function<void()> report_;
};

std::shared_ptr<EmptyOperation> makeOperation(const std::shared_ptr<ADMOperationQueue>& queue,
                                              std::function<void()> report)
{
    return ADMSchedulableOperation::initWithServiceInfo<EmptyOperation>(serviceInfo(), queue, std::move(report));
}

/// The peer: a function goes to a thread through a queue under a lock, and another one back in the same way.
class BareQueue {
public:
    void add(std::function<void()> function)
    {
        {
            std::lock_guard guard(lock_);
            functions_.push_back(std::move(function));
        }
        added_.notify_one();
    }
    std::function<void()> take()
    {
        std::unique_lock guard(lock_);
        added_.wait(guard, [this] { return !functions_.empty(); });
        auto first = std::move(functions_.front());
        functions_.pop_front();
        return first;
    }

private:
    std::mutex lock_;
    std::condition_variable added_;
    std::deque<std::function<void()>> functions_; // guarded by lock_
};

void operations(benchmark::State& state, int batch)
{
    const auto queue = std::make_shared<ADMOperationQueue>();
    const auto runLoop = RunLoop::current();
    queue->scheduleInRunLoop(runLoop, kMode);
    int missing = 0;
    for (auto _ : state) {
        missing = batch;
        for (int i = 0; i < batch; ++i)
            makeOperation(queue, [&missing] { --missing; })->scheduleOperation();
        while (missing > 0)
            runLoop->runMode(kMode, Date::afterNow(10), true);
    }
    state.SetItemsProcessed(state.iterations() * batch);
}

void bareHandOver(benchmark::State& state, int batch)
{
    BareQueue there;
    BareQueue back;
    bool isOver = false;
    std::thread thread([&] {
        while (!isOver)
            there.take()();
    });
    for (auto _ : state) {
        for (int i = 0; i < batch; ++i)
            there.add([&back] { back.add([] {}); });
        for (int i = 0; i < batch; ++i)
            back.take()();
    }
    there.add([&isOver] { isOver = true; });
    thread.join();
    state.SetItemsProcessed(state.iterations() * batch);
}

void synchronousOperation(benchmark::State& state)
{
    const auto queue = std::make_shared<ADMOperationQueue>();
    const auto service =
        ADMFunctionalServiceImp::initWithServiceInfo<ADMOperationBasedFunctionalServiceImp>(serviceInfo());
    for (auto _ : state)
        service->performOperation(makeOperation(queue, [] {}));
    state.SetItemsProcessed(state.iterations());
}

BENCHMARK_CAPTURE(operations, batch, kBatch)->Name("batch/dmf")->UseRealTime()->MeasureProcessCPUTime();
BENCHMARK_CAPTURE(bareHandOver, batch, kBatch)->Name("batch/bare")->UseRealTime()->MeasureProcessCPUTime();
BENCHMARK_CAPTURE(operations, single, 1)->Name("round_trip/dmf")->UseRealTime()->MeasureProcessCPUTime();
BENCHMARK_CAPTURE(bareHandOver, single, 1)->Name("round_trip/bare")->UseRealTime()->MeasureProcessCPUTime();
BENCHMARK(synchronousOperation)->Name("synchronous/dmf")->UseRealTime()->MeasureProcessCPUTime();

} // namespace

BENCHMARK_MAIN();
