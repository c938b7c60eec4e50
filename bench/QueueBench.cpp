/// Messages between threads, in batches and one by one there and back: the library's queue, a bare GLib source over a
/// queue of its own, and one g_main_context_invoke a message.

#include <dmf/ADMMessageQueue.h>

#include <glib.h>

#include <atomic>
#include <deque>
#include <functional>
#include <future>
#include <memory>
#include <mutex>
#include <semaphore>
#include <thread>

#include <benchmark/benchmark.h>

using dmf::Date;
using dmf::RunLoop;
using dmf::Value;

namespace {

constexpr const char* kMode = "bench";
constexpr int kBatch = 10'000;

/// Lets the sender wait for the receiver: until a batch of messages has come through.
class Batch {
public:
    void begin(int count) { missing_.store(count, std::memory_order_relaxed); }
    void received()
    {
        if (missing_.fetch_sub(1, std::memory_order_acq_rel) == 1)
            all_.release();
    }
    void wait() { all_.acquire(); }

private:
    std::atomic<int> missing_{0};
    std::binary_semaphore all_{0};
};

/// The peer: a GLib source over a queue under a lock, its context turned by a thread of its own.
class GlibQueue {
public:
    using Receiver = std::function<void(const Value&)>;
    explicit GlibQueue(Receiver receiver) : receiver_(std::move(receiver))
    {
        static GSourceFuncs functions = {nullptr, nullptr, &dispatch, nullptr, nullptr, nullptr};
        source_ = reinterpret_cast<Source*>(g_source_new(&functions, sizeof(Source)));
        source_->queue = this;
        g_source_attach(&source_->base, context_);
        thread_ = std::thread([this] { g_main_loop_run(loop_); });
    }
    ~GlibQueue()
    {
        g_main_loop_quit(loop_);
        thread_.join();
        g_source_destroy(&source_->base);
        g_source_unref(&source_->base);
        g_main_loop_unref(loop_);
        g_main_context_unref(context_);
    }
    GlibQueue(const GlibQueue&) = delete;
    GlibQueue& operator=(const GlibQueue&) = delete;

    void add(Value object)
    {
        std::lock_guard guard(lock_);
        objects_.push_back(std::move(object));
        if (objects_.size() == 1)
            g_source_set_ready_time(&source_->base, 0);
    }
    GMainContext* context() const { return context_; }

private:
    struct Source {
        GSource base;
        GlibQueue* queue;
    };
    static gboolean dispatch(GSource* source, GSourceFunc, gpointer)
    {
        GlibQueue& queue = *reinterpret_cast<Source*>(source)->queue;
        g_source_set_ready_time(source, -1);
        for (Value object = queue.pop(); !object.isNull(); object = queue.pop())
            queue.receiver_(object);
        return G_SOURCE_CONTINUE;
    }
    Value pop()
    {
        std::lock_guard guard(lock_);
        if (objects_.empty())
            return {};
        Value first = std::move(objects_.front());
        objects_.pop_front();
        return first;
    }

    const Receiver receiver_;
    GMainContext* const context_ = g_main_context_new();
    GMainLoop* const loop_ = g_main_loop_new(context_, FALSE);
    Source* source_ = nullptr;
    std::mutex lock_;
    std::deque<Value> objects_; // guarded by lock_
    std::thread thread_;
};

/// The library's queue, served by a run loop on a thread of its own.
class LibraryQueue {
public:
    explicit LibraryQueue(std::function<void(const Value&)> receiver)
        : queue_(ADMMessageQueue::initWithInvocation(
              [receiver = std::move(receiver)](ADMMessageQueue&, const Value& object) { receiver(object); }))
    {
        std::promise<std::shared_ptr<RunLoop>> started;
        thread_ = std::thread([this, &started] {
            queue_->scheduleInRunLoop(RunLoop::current(), kMode);
            started.set_value(RunLoop::current());
            RunLoop::current()->runMode(kMode, Date::distantFuture());
        });
        loop_ = started.get_future().get();
    }
    ~LibraryQueue()
    {
        queue_->invalidate();
        loop_->stop();
        thread_.join();
    }
    LibraryQueue(const LibraryQueue&) = delete;
    LibraryQueue& operator=(const LibraryQueue&) = delete;

    void add(Value object) { queue_->addObject(std::move(object)); }

private:
    std::shared_ptr<ADMMessageQueue> queue_;
    std::shared_ptr<RunLoop> loop_;
    std::thread thread_;
};

template <class Queue>
void batches(benchmark::State& state)
{
    Batch batch;
    Queue queue([&](const Value&) { batch.received(); });
    for (auto _ : state) {
        batch.begin(kBatch);
        for (int i = 0; i < kBatch; ++i)
            queue.add(i);
        batch.wait();
    }
    state.SetItemsProcessed(state.iterations() * kBatch);
}

template <class Queue>
void roundTrips(benchmark::State& state)
{
    std::binary_semaphore back{0};
    Queue queue([&](const Value&) { back.release(); });
    for (auto _ : state) {
        queue.add(1);
        back.acquire();
    }
    state.SetItemsProcessed(state.iterations());
}

void batchesByContextInvoke(benchmark::State& state)
{
    Batch batch;
    GlibQueue queue([](const Value&) {});
    for (auto _ : state) {
        batch.begin(kBatch);
        for (int i = 0; i < kBatch; ++i) {
            const auto call = [](gpointer data) -> gboolean {
                static_cast<Batch*>(data)->received();
                return G_SOURCE_REMOVE;
            };
            g_main_context_invoke(queue.context(), call, &batch);
        }
        batch.wait();
    }
    state.SetItemsProcessed(state.iterations() * kBatch);
}

BENCHMARK(batches<LibraryQueue>)->Name("batch/dmf")->UseRealTime()->MeasureProcessCPUTime();
BENCHMARK(batches<GlibQueue>)->Name("batch/glib_source")->UseRealTime()->MeasureProcessCPUTime();
BENCHMARK(batchesByContextInvoke)->Name("batch/glib_invoke")->UseRealTime()->MeasureProcessCPUTime();
BENCHMARK(roundTrips<LibraryQueue>)->Name("round_trip/dmf")->UseRealTime()->MeasureProcessCPUTime();
BENCHMARK(roundTrips<GlibQueue>)->Name("round_trip/glib_source")->UseRealTime()->MeasureProcessCPUTime();

} // namespace

BENCHMARK_MAIN();
