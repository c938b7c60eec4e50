/// A log line beside a bare write of as many bytes to a file of the same kind, and a message that is filtered out; from
/// one thread and from two. Batches of both sides take turns, so that a busy machine does not favour one of them.

#include <dmf/DMLog.h>

#include <fcntl.h>
#include <unistd.h>

#include <dmf/ADMLogger.h>
#include <dmf/DMKeys.h>

#include <chrono>
#include <string>

#include <benchmark/benchmark.h>

#include "support/HostFixture.h"

namespace {

constexpr int kBatch = 1000;
constexpr const char* kMessage = "ServiceInfo: resolved the service in the given time, on the first attempt";

/// The machine of all benchmarks, with "info" configured; made on first use and kept to the end.
HostFixture& machine()
{
    static HostFixture host;
    static const bool configured = [] {
        host.writeFile(kDMLogConfigPath, "info");
        return true;
    }();
    (void)configured;
    return host;
}

double nanoseconds(std::chrono::steady_clock::duration duration)
{
    return std::chrono::duration<double, std::nano>(duration).count();
}

/// Runs batches of `log` and of bare writes of an equal line in turn; tells the time of one of each, and their ratio.
template <class Log>
void besideBareWrites(benchmark::State& state, Log log)
{
    HostFixture& host = machine();
    const std::string name = std::to_string(state.thread_index());
    const std::string logPath = host.path("/log" + name).string();
    const std::string barePath = host.path("/bare" + name).string();
    const auto logger = ADMLogger::initWithLogLevel("info", logPath);
    logger->startLogging();
    log();
    const std::string line = host.readFile("/log" + name);
    const int bare = ::open(barePath.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0644);

    using Clock = std::chrono::steady_clock;
    Clock::duration logged{};
    Clock::duration written{};
    for (auto _ : state) {
        const auto start = Clock::now();
        for (int i = 0; i < kBatch; ++i)
            log();
        const auto between = Clock::now();
        for (int i = 0; i < kBatch; ++i)
            benchmark::DoNotOptimize(::write(bare, line.data(), line.size()));
        logged += between - start;
        written += Clock::now() - between;
        // Short files, so that neither side comes to fill the disk.
        state.PauseTiming();
        (void)!::truncate(logPath.c_str(), 0);
        (void)!::truncate(barePath.c_str(), 0);
        state.ResumeTiming();
    }
    ::close(bare);
    logger->endLogging();
    using benchmark::Counter;
    const auto lines = static_cast<double>(state.iterations()) * kBatch;
    state.counters["line_ns"] = Counter(nanoseconds(logged) / lines, Counter::kAvgThreads);
    state.counters["write_ns"] = Counter(nanoseconds(written) / lines, Counter::kAvgThreads);
    state.counters["ratio"] = Counter(nanoseconds(logged) / nanoseconds(written), Counter::kAvgThreads);
}

void plainLine(benchmark::State& state)
{
    besideBareWrites(state, [] { DMFLog("info", kMessage); });
}

void lineWithArguments(benchmark::State& state)
{
    const std::string uri = "socket://192.168.1.20";
    besideBareWrites(state, [&] { DMFLog("info", "ServiceInfo: resolved '%@' in %d ms, attempt %d", uri, 120, 1); });
}

void filteredOut(benchmark::State& state)
{
    machine();
    const std::string uri = "socket://192.168.1.20";
    for (auto _ : state)
        DMFLog("debug", "ServiceInfo: resolved '%@' in %d ms, attempt %d", uri, 120, 1);
}

} // namespace

BENCHMARK(plainLine)->ThreadRange(1, 2)->UseRealTime();
BENCHMARK(lineWithArguments)->ThreadRange(1, 2)->UseRealTime();
BENCHMARK(filteredOut)->ThreadRange(1, 2)->UseRealTime();

BENCHMARK_MAIN();
