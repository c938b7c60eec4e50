#include "Announcements.h"

#include <algorithm>
#include <utility>

#include <dmf/ADMServiceInfoImp.h>

namespace dmf::simulated {
namespace {
constexpr std::uint64_t kMostServices = 100'000;
constexpr std::uint64_t kMostRepeats = 10'000;
constexpr double kLongestDelay = 60; // seconds
constexpr std::string_view kURIBegin = "simulated://QLDMF/v=1&connectionType=Simulated&vendorName=QL&modelName=";

std::vector<std::string> builtInURIs()
{
    std::vector<std::string> uris;
    for (const auto* model : {"Aurora%20210", "Aurora%20450n", "Meridian%20M7"})
        uris.push_back(std::string(kURIBegin) + model + "&answer=@echo");
    return uris;
}

std::vector<std::string> madeUpURIs(std::uint64_t count)
{
    std::vector<std::string> uris;
    uris.reserve(count);
    for (std::uint64_t number = 1; number <= count; ++number)
        uris.push_back(std::string(kURIBegin) + "Aurora%20210&SerialNumber=SIM" + std::to_string(number));
    return uris;
}

std::optional<double> numberIn(const Dictionary& script, std::string_view key)
{
    const auto* const number = script[key].asNumber();
    return number && number->doubleValue() >= 0 ? std::optional(number->doubleValue()) : std::nullopt;
}

std::uint64_t countIn(const Dictionary& script, std::string_view key, std::uint64_t otherwise, std::uint64_t most)
{
    const auto number = numberIn(script, key);
    return number ? static_cast<std::uint64_t>(std::min(*number, static_cast<double>(most))) : otherwise;
}

double secondsIn(const Dictionary& script, std::string_view key, double otherwise)
{
    return std::min(numberIn(script, key).value_or(otherwise), kLongestDelay);
}

bool isSet(const Dictionary& script, std::string_view key)
{
    const auto* const flag = script[key].asBool();
    return flag && *flag;
}
} // namespace

Simulation Simulation::fromParameters(const Dictionary& parameters)
{
    const auto* const given = parameters["simulation"].asDictionary();
    const Dictionary script = given ? *given : Dictionary();
    Simulation simulation;
    simulation.burst = std::max<std::uint64_t>(1, countIn(script, "burst", UINT64_MAX, kMostServices));
    simulation.interval = secondsIn(script, "interval", simulation.interval);
    simulation.duplicates = std::max<std::uint64_t>(1, countIn(script, "duplicates", 1, kMostRepeats));
    simulation.flaps = countIn(script, "flaps", 0, kMostRepeats);
    simulation.withdraws = isSet(script, "withdraw");
    simulation.startStatus = static_cast<std::uint32_t>(countIn(script, "startStatus", 0, UINT32_MAX));
    simulation.startDelay = secondsIn(script, "startDelay", 0);
    simulation.isSilent = isSet(script, "silent");
    simulation.trouble = script.string("trouble").value_or("");
    if (simulation.isSilent)
        return simulation;

    if (const auto* const uris = script["services"].asArray()) {
        for (const auto& uri : *uris) {
            if (auto text = uri.string())
                simulation.uris.push_back(*std::move(text));
        }
    } else if (const auto count = countIn(script, "count", 0, kMostServices); count > 0) {
        simulation.uris = madeUpURIs(count);
    } else {
        simulation.uris = builtInURIs();
    }
    return simulation;
}

Announcements::Announcements(const Simulation& simulation, std::string_view deviceClass)
    : duplicates_(simulation.duplicates)
{
    services_.reserve(simulation.uris.size());
    for (const auto& uri : simulation.uris) {
        if (auto service = ADMServiceInfoImp::initWithURI(uri, deviceClass))
            services_.push_back(std::move(service));
    }
    const std::uint64_t passes = 1 + 2 * simulation.flaps + (simulation.withdraws ? 1 : 0);
    total_ = services_.size() * duplicates_ * passes;
}

/// Passes over all services, an announcing one and a withdrawing one in turn.
Announcements::Announcement Announcements::next()
{
    const std::uint64_t position = next_++;
    const std::uint64_t perPass = services_.size() * duplicates_;
    return {services_[position % perPass / duplicates_], position / perPass % 2 == 1};
}

} // namespace dmf::simulated
