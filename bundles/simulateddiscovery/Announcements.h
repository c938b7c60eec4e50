#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include <dmf/ADMServiceInfo.h>
#include <dmf/platform/Value.h>

namespace dmf::simulated {

/// What a simulated discovery does, as its parameters tell. README.md describes each entry.
struct Simulation {
    std::vector<std::string> uris;
    std::uint64_t burst = UINT64_MAX;
    double interval = 0.05; // seconds
    std::uint64_t duplicates = 1;
    std::uint64_t flaps = 0;
    bool withdraws = false;
    std::uint32_t startStatus = 0;
    double startDelay = 0; // seconds
    bool isSilent = false;
    std::string trouble;

    /// Entries that make no sense are left alone.
    [[nodiscard]] static Simulation fromParameters(const Dictionary& parameters);
};

/// The announcements that a simulation makes, one after the other. Reentrant.
class Announcements final {
public:
    struct Announcement {
        std::shared_ptr<ADMServiceInfo> service;
        bool isRemoval = false;
    };
    /// URIs that are none, or of a scheme that nobody serves, are left out.
    Announcements(const Simulation& simulation, std::string_view deviceClass);

    [[nodiscard]] bool isAtEnd() const noexcept { return next_ == total_; }
    /// To be called while there is one.
    [[nodiscard]] Announcement next();

private:
    std::vector<std::shared_ptr<ADMServiceInfo>> services_;
    std::uint64_t duplicates_;
    std::uint64_t total_ = 0;
    std::uint64_t next_ = 0;
};

} // namespace dmf::simulated
