#include "plugins/PlugInReports.h"

#include <dmf/DMKeys.h>

#include <algorithm>

#include "foundation/logging/LogText.h"
#include "platform/host/Host.h"
#include "plugins/PlugInRules.h"

namespace dmf::internal {
namespace {

std::string reasonAgainst(const NamedImplementor& named, bool isMock)
{
    const auto found = ClassRegistry::shared().classNamed(named.className);
    if (!found)
        return "there is no class of that name";
    if (isMock ? isMockImplementor(*found) : implements(*found, named.interfaceName))
        return {};
    return isMock ? "the class is neither an I/O provider nor a functional service"
                  : "the class does not implement the interface";
}

std::vector<ADMPlugInReport::Implementor> implementorsOf(const Bundle& bundle)
{
    std::vector<ADMPlugInReport::Implementor> implementors;
    const Dictionary info = bundle.infoDictionary();
    const bool isMock = info.contains(kDMMockScheme);
    for (const NamedImplementor& named : namedImplementors(info)) {
        // Its classes are known only once its code has been loaded.
        std::string reason = bundle.isLoaded() ? reasonAgainst(named, isMock) : std::string();
        implementors.push_back(
            {withoutControls(named.interfaceName), withoutControls(named.className), std::move(reason)});
    }
    return implementors;
}

} // namespace

// Called with the lock held.
PlugInReports::ByPath& PlugInReports::ofPresentHost() const
{
    if (generation_ != Host::generation()) {
        byPath_.clear();
        refusedAtLoad_.clear();
        generation_ = Host::generation();
    }
    return byPath_;
}

void PlugInReports::noteUnusable(const std::string& path, const std::string& reason)
{
    ADMPlugInReport report;
    report.path = path;
    report.state = ADMPlugInReport::State::refused;
    report.reason = withoutControls(reason);
    std::lock_guard guard(lock_);
    ofPresentHost()[path] = std::move(report);
    refusedAtLoad_.erase(path);
}

void PlugInReports::noteDescribed(const Bundle& bundle, bool kept)
{
    ADMPlugInReport report;
    report.path = bundle.path();
    report.state = bundle.isLoaded() ? ADMPlugInReport::State::loaded : ADMPlugInReport::State::described;
    report.kept = kept;
    report.mockScheme = withoutControls(bundle.infoDictionary().string(kDMMockScheme).value_or(""));
    report.implementors = implementorsOf(bundle);
    std::lock_guard guard(lock_);
    ADMPlugInReport& known = ofPresentHost()[bundle.path()];
    // Only another attempt to load it can take back what the last one said.
    if (!bundle.isLoaded() && refusedAtLoad_.contains(bundle.path())) {
        report.state = known.state;
        report.reason = std::move(known.reason);
    }
    known = std::move(report);
}

void PlugInReports::noteLoaded(const Bundle& bundle)
{
    auto implementors = implementorsOf(bundle);
    std::lock_guard guard(lock_);
    ADMPlugInReport& report = ofPresentHost()[bundle.path()];
    report.path = bundle.path();
    report.state = ADMPlugInReport::State::loaded;
    report.reason.clear();
    report.implementors = std::move(implementors);
    refusedAtLoad_.erase(bundle.path());
}

void PlugInReports::noteNotLoaded(const Bundle& bundle, const std::string& reason)
{
    std::lock_guard guard(lock_);
    ADMPlugInReport& report = ofPresentHost()[bundle.path()];
    report.path = bundle.path();
    report.state = ADMPlugInReport::State::refused;
    report.reason = withoutControls(reason);
    refusedAtLoad_.insert(bundle.path());
}

void PlugInReports::forgetGone(std::string_view folder, const std::vector<std::string>& present)
{
    const std::string prefix = std::string(folder) + "/";
    const auto isGone = [&](const std::string& path) {
        if (!path.starts_with(prefix) || path.find('/', prefix.size()) != std::string::npos)
            return false;
        return std::ranges::find(present, std::string_view(path).substr(prefix.size())) == present.end();
    };
    std::lock_guard guard(lock_);
    std::erase_if(ofPresentHost(), [&](const auto& entry) { return isGone(entry.first); });
    std::erase_if(refusedAtLoad_, isGone);
}

std::vector<ADMPlugInReport> PlugInReports::all() const
{
    std::lock_guard guard(lock_);
    std::vector<ADMPlugInReport> reports;
    for (const auto& [path, report] : ofPresentHost())
        reports.push_back(report);
    return reports;
}

} // namespace dmf::internal
