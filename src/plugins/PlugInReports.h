#pragma once

#include <cstdint>
#include <map>
#include <mutex>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include <dmf/ADMPlugInManager.h>

namespace dmf::internal {

/// What became of each bundle that was looked at, by its path (Bundle::path). What descriptions say has its control
/// characters escaped. Thread-safe.
class PlugInReports {
public:
    void noteUnusable(const std::string& path, const std::string& reason);
    void noteDescribed(const Bundle& bundle, bool kept);
    void noteLoaded(const Bundle& bundle);
    void noteNotLoaded(const Bundle& bundle, const std::string& reason);
    /// Forgets the bundles of a folder but those of the names `present`, which still lie in it.
    void forgetGone(std::string_view folder, const std::vector<std::string>& present);

    [[nodiscard]] std::vector<ADMPlugInReport> all() const;

private:
    using ByPath = std::map<std::string, ADMPlugInReport, std::less<>>;
    [[nodiscard]] ByPath& ofPresentHost() const;

    mutable std::mutex lock_;
    mutable ByPath byPath_;                                    // guarded by lock_
    mutable std::set<std::string, std::less<>> refusedAtLoad_; // guarded by lock_; paths
    mutable std::uint64_t generation_ = 0;                     // of the host that they belong to; guarded by lock_
};

} // namespace dmf::internal
