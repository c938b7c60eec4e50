/// Ten thousand services of three thousand devices brought together by device: beside reading what the services say of
/// themselves, which a list of services does as well.

#include <dmf/ADMServiceInfoImp.h>
#include <dmf/DMKeys.h>

#include <memory>
#include <string>
#include <vector>

#include <benchmark/benchmark.h>

#include "devices/DeviceIndex.h"

namespace {

constexpr int kServices = 10'000;
constexpr int kDevices = 3'000;

std::vector<std::shared_ptr<ADMServiceInfo>> services()
{
    std::vector<std::shared_ptr<ADMServiceInfo>> all;
    for (int number = 0; number < kServices; ++number) {
        const auto device = std::to_string(number % kDevices);
        const bool isUsb = number / kDevices % 2 == 0;
        dmf::Dictionary params{{std::string(kSerialNumberParam), "SN" + device},
                               {std::string(kMACAddressParam), std::to_string(100'000'000'000 + number % kDevices)}};
        all.push_back(ADMServiceInfoImp::initWithSpec(
            {{std::string(kURIProp), "socket://host" + std::to_string(number) + ":9100/?bidi"},
             {std::string(kConnectionTypeProp), isUsb ? "USB" : "IP"},
             {std::string(kVendorNameProp), "QL"},
             {std::string(kModelNameProp), "Aurora 450n"},
             {std::string(kParamsProp), params}}));
    }
    return all;
}

void listDevices(benchmark::State& state)
{
    const auto all = services();
    for ([[maybe_unused]] auto _ : state) {
        dmf::internal::DeviceIndex index;
        for (const auto& service : all)
            benchmark::DoNotOptimize(index.add(dmf::internal::factsOf(service)));
        if (index.devices().size() != kDevices)
            state.SkipWithError("not as many devices as there are");
    }
    state.SetItemsProcessed(state.iterations() * kServices);
}
BENCHMARK(listDevices)->Name("devices/list")->Unit(benchmark::kMillisecond);

void readServices(benchmark::State& state)
{
    const auto all = services();
    for ([[maybe_unused]] auto _ : state) {
        for (const auto& service : all)
            benchmark::DoNotOptimize(dmf::internal::factsOf(service));
    }
    state.SetItemsProcessed(state.iterations() * kServices);
}
BENCHMARK(readServices)->Name("devices/peer: read only")->Unit(benchmark::kMillisecond);

} // namespace

BENCHMARK_MAIN();
