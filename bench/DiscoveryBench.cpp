/// From the wish to announce a service to the moment at which somebody on the same machine hears of it: the delegate
/// call of a discovery session, and a line of avahi-browse, which has seen the service or has resolved it too. All
/// three watch the same daemon and the same publications. Most of the time is the daemon's own: it makes sure that
/// nobody else has the name first.

#include <dmf/ADMBaseDiscovery.h>
#include <dmf/ADMServiceInfo.h>
#include <dmf/DMKeys.h>

#include <array>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include <benchmark/benchmark.h>

#include "support/AvahiFixture.h"

namespace {

using Clock = std::chrono::steady_clock;
constexpr int kPublications = 8;
constexpr std::chrono::seconds kLimit{10};

enum Watcher { session, browse, resolvingBrowse };

/// When each watcher has heard of each service.
class Times {
public:
    void note(Watcher watcher, const std::string& name)
    {
        std::lock_guard guard(lock_);
        times_[name].try_emplace(watcher, Clock::now());
    }
    bool areAllThere(const std::string& name)
    {
        std::lock_guard guard(lock_);
        return times_[name].size() == 3;
    }
    double seconds(Watcher watcher, const std::string& name, Clock::time_point since)
    {
        std::lock_guard guard(lock_);
        return std::chrono::duration<double>(times_[name][watcher] - since).count();
    }

private:
    std::mutex lock_;
    std::map<std::string, std::map<Watcher, Clock::time_point>> times_; // guarded by lock_
};

/// avahi-browse, which ends with its daemon. "+;cable0;IPv4;NAME;..." is a service seen, "=;..." one resolved.
void readBrowser(FILE* browser, Times& times)
{
    std::array<char, 4096> line;
    while (std::fgets(line.data(), line.size(), browser)) {
        const std::string text = line.data();
        std::size_t begin = 0;
        for (int field = 0; field < 3 && begin != std::string::npos; ++field)
            begin = text.find(';', begin == 0 ? 0 : begin + 1);
        if (begin == std::string::npos || (text[0] != '+' && text[0] != '='))
            continue;
        const auto name = text.substr(begin + 1, text.find(';', begin + 1) - begin - 1);
        times.note(text[0] == '+' ? browse : resolvingBrowse, name);
    }
    ::pclose(browser);
}

struct Sample {
    std::array<double, 3> seconds; // by Watcher
};

std::vector<Sample> measured()
{
    if (!AvahiFixture::problem().empty())
        return {};
    auto avahi = std::make_unique<AvahiFixture>();
    if (!avahi->start())
        return {};
    Times times;
    std::thread reader(readBrowser, ::popen("exec avahi-browse -p -r _ipp._tcp 2>/dev/null", "re"), std::ref(times));

    const auto delegate = std::make_shared<ADMDiscoveryDelegate>();
    delegate->discoveryDidFindService = [&times](ADMDiscovery&, const auto& service) {
        times.note(session, service->connectionParams().string(kBonjourServiceNameParam).value_or(""));
    };
    const auto discovery = ADMBaseDiscovery::initWithChannelNames({"Print"});
    discovery->setDelegate(delegate);
    const auto loop = dmf::RunLoop::current();
    discovery->scheduleInRunLoop(loop, dmf::kDefaultRunLoopMode);
    discovery->scheduleDiscoveryForConnectionTypes({"Rendezvous"});
    const auto waitFor = [&](const std::string& name) {
        for (const auto limit = Clock::now() + kLimit; !times.areAllThere(name) && Clock::now() < limit;)
            loop->runMode(dmf::kDefaultRunLoopMode, dmf::Date::now().addingTimeInterval(0.01), true);
        return times.areAllThere(name);
    };

    std::vector<Sample> samples;
    // The first one only shows that all are watching.
    for (int i = 0; i <= kPublications; ++i) {
        const auto name = "Bench" + std::to_string(i);
        const auto start = Clock::now();
        const auto publication = avahi->beginToPublish(name, "_ipp._tcp", 631, {"usb_MFG=QL", "usb_MDL=Model 9"});
        if (!waitFor(name))
            break;
        if (i > 0)
            samples.push_back({{times.seconds(session, name, start), times.seconds(browse, name, start),
                                times.seconds(resolvingBrowse, name, start)}});
    }
    discovery->stop();
    avahi = nullptr;
    reader.join();
    return samples;
}

void heard(benchmark::State& state, Watcher watcher)
{
    static const auto samples = measured();
    if (samples.size() != kPublications) {
        state.SkipWithError("no Avahi daemon can be run here");
        return;
    }
    double afterBrowse = 0;
    std::size_t next = 0;
    for (auto _ : state) {
        const auto& sample = samples[next++ % samples.size()];
        state.SetIterationTime(sample.seconds[watcher]);
        afterBrowse += sample.seconds[watcher] - sample.seconds[browse];
    }
    // What is left without the daemon's own time, which differs from service to service.
    state.counters["ms_after_browse"] = afterBrowse * 1000 / static_cast<double>(next);
}

} // namespace

BENCHMARK_CAPTURE(heard, session, session)->UseManualTime()->Iterations(kPublications)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(heard, avahiBrowse, browse)
    ->UseManualTime()
    ->Iterations(kPublications)
    ->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(heard, avahiBrowseResolving, resolvingBrowse)
    ->UseManualTime()
    ->Iterations(kPublications)
    ->Unit(benchmark::kMillisecond);
BENCHMARK_MAIN();
