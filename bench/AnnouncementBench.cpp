/// Found services on their way from the discovery thread to a client's run loop: through a discovery session, and as a
/// bare hand-over of the same objects through a queue under a lock with one GLib source.

#include <dmf/ADMBaseDiscovery.h>
#include <dmf/ADMServiceDiscoveryBase.h>
#include <dmf/ADMServiceInfoImp.h>
#include <dmf/DMKeys.h>

#include <glib.h>

#include <atomic>
#include <deque>
#include <filesystem>
#include <fstream>
#include <functional>
#include <memory>
#include <mutex>
#include <thread>

#include <benchmark/benchmark.h>

#include "support/HostFixture.h"

namespace {

constexpr int kBatch = 10'000;
using Service = std::shared_ptr<ADMServiceInfo>;

Service serviceInfo()
{
    static const Service info =
        ADMServiceInfoImp::initWithURI("socket://192.0.2.1:9100?vendor=QL&product=Model%209", kPrinterDeviceClass);
    return info;
}

/// A back end that announces when the benchmark says so.
class BenchDiscovery final : public ADMServiceDiscoveryBase {
public:
    class Provider final : public ADMDiscoveryProvider {
    public:
        using ADMDiscoveryProvider::ADMDiscoveryProvider;
        Status startDiscovery(std::string_view, std::optional<std::string_view>) override { return 0; }
        Status stopDiscovery() override { return 0; }
    };
    BenchDiscovery(std::string name, std::string type, dmf::Dictionary parameters)
        : ADMServiceDiscoveryBase(std::move(name), std::move(type), std::move(parameters))
    {
    }
    static std::shared_ptr<IDMServiceDiscovery> make(std::string name, std::string type, dmf::Dictionary parameters)
    {
        const auto made = std::make_shared<BenchDiscovery>(std::move(name), std::move(type), std::move(parameters));
        made->setDiscovery(std::make_shared<Provider>(made));
        current = made;
        return made;
    }
    void announceBatch()
    {
        performAction([self = shared_from_this(), service = serviceInfo()] {
            for (int count = 0; count < kBatch; ++count)
                self->announceService(service, false);
        });
    }
    static inline std::weak_ptr<BenchDiscovery> current;
};

/// A machine whose only plug-in is the benchmark's back end.
class BenchHost : public HostFixture {
public:
    BenchHost()
    {
        host().libraryFolder = path("/lib").string();
        writeFile("/lib/dmf/PlugIns/bench.bundle/Info.plist", R"(<plist version="1.0"><dict>
<key>CFBundleExecutable</key><string>Object.so</string>
<key>DMPlugInInterfaceNumber</key><integer>2</integer>
<key>DMServiceConnectionType</key><string>Bench</string>
<key>DMPlugInProtocol2ImplementorMap</key><dict><key>IDMServiceDiscovery</key><string>BenchDiscovery</string></dict>
</dict></plist>)");
        std::filesystem::copy_file(DMF_ANY_OBJECT, path("/lib/dmf/PlugIns/bench.bundle/Object.so"));
    }
};

} // namespace

DMF_REGISTER_CLASS(BenchDiscovery)
{
    described.implements<IDMServiceDiscovery>(&BenchDiscovery::make);
}

namespace {

void throughSession(benchmark::State& state)
{
    const BenchHost host;
    const auto loop = dmf::RunLoop::current();
    const auto discovery = ADMBaseDiscovery::initWithChannelNames({"Print"});
    const auto delegate = std::make_shared<ADMDiscoveryDelegate>();
    int missing = 0;
    delegate->discoveryDidFindService = [&](ADMDiscovery&, const Service& service) {
        benchmark::DoNotOptimize(service.get());
        --missing;
    };
    discovery->setDelegate(delegate);
    discovery->scheduleInRunLoop(loop, dmf::kDefaultRunLoopMode);
    discovery->scheduleDiscoveryForConnectionTypes({"Bench"});
    while (discovery->sources()[0].state == ADMDiscoverySource::State::starting)
        std::this_thread::yield();
    const auto backEnd = BenchDiscovery::current.lock();
    if (!backEnd) {
        state.SkipWithError("the back end did not start");
        return;
    }
    for (auto _ : state) {
        missing = kBatch;
        backEnd->announceBatch();
        while (missing > 0)
            loop->runMode(dmf::kDefaultRunLoopMode, dmf::Date::now().addingTimeInterval(1), true);
    }
    state.SetItemsProcessed(state.iterations() * kBatch);
}

/// The peer: a thread of its own puts the same objects into a queue, a GLib source takes them out.
void bareHandOver(benchmark::State& state)
{
    struct Queue {
        std::mutex lock;
        std::deque<Service> services;
        int missing = 0;
    } queue;
    struct Source {
        GSource base;
        Queue* queue;
    };
    static GSourceFuncs functions = {nullptr,
                                     nullptr,
                                     [](GSource* source, GSourceFunc, gpointer) -> gboolean {
                                         Queue& taken = *reinterpret_cast<Source*>(source)->queue;
                                         g_source_set_ready_time(source, -1);
                                         for (;;) {
                                             Service service;
                                             {
                                                 std::lock_guard guard(taken.lock);
                                                 if (taken.services.empty())
                                                     return G_SOURCE_CONTINUE;
                                                 service = std::move(taken.services.front());
                                                 taken.services.pop_front();
                                             }
                                             benchmark::DoNotOptimize(service.get());
                                             --taken.missing;
                                         }
                                     },
                                     nullptr,
                                     nullptr,
                                     nullptr};
    GMainContext* const context = g_main_context_new();
    auto* const source = reinterpret_cast<Source*>(g_source_new(&functions, sizeof(Source)));
    source->queue = &queue;
    g_source_attach(&source->base, context);

    std::atomic<int> wanted{0};
    std::thread announcer([&, service = serviceInfo()] {
        for (int last = 0;;) {
            wanted.wait(last);
            last = wanted;
            if (last < 0)
                return;
            for (int count = 0; count < kBatch; ++count) {
                std::lock_guard guard(queue.lock);
                queue.services.push_back(service);
                if (queue.services.size() == 1)
                    g_source_set_ready_time(&source->base, 0);
            }
        }
    });
    for (auto _ : state) {
        queue.missing = kBatch;
        ++wanted;
        wanted.notify_one();
        while (queue.missing > 0)
            g_main_context_iteration(context, TRUE);
    }
    wanted = -1;
    wanted.notify_one();
    announcer.join();
    g_source_destroy(&source->base);
    g_source_unref(&source->base);
    g_main_context_unref(context);
    state.SetItemsProcessed(state.iterations() * kBatch);
}

BENCHMARK(throughSession)->UseRealTime()->MeasureProcessCPUTime();
BENCHMARK(bareHandOver)->UseRealTime()->MeasureProcessCPUTime();

} // namespace

BENCHMARK_MAIN();
