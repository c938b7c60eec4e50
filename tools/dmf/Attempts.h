#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include <dmf/platform/RunLoop.h>
#include <dmf/platform/Value.h>

namespace dmf::tool {

/// Watches the attempts of a resolution: the library tells its end only, so a resolver of our own, registered for the
/// connection type, works as the library's does and tells of each attempt.
class Attempts {
public:
    struct Attempt {
        double seconds = 0; ///< since the beginning, when it ended
        bool found = false;
        Dictionary info; ///< what the device said of itself
    };
    /// Told on the run loop's thread; the first attempt has the number 1.
    using Report = std::function<void(std::size_t number, const Attempt& attempt)>;

    Attempts(std::shared_ptr<RunLoop> runLoop, Report report);
    ~Attempts();
    Attempts(const Attempts&) = delete;
    Attempts& operator=(const Attempts&) = delete;

    /// From now on services of that type are resolved under observation.
    void observe(const std::string& connectionType);
    /// Tells what was not told yet, and gives all attempts.
    [[nodiscard]] std::vector<Attempt> made();
    /// Seconds since the beginning.
    [[nodiscard]] double elapsed() const;

private:
    class Resolver;
    struct State;
    void tell();

    const std::shared_ptr<State> state_; // shared with resolvers, whose threads can outlive this object
    const std::shared_ptr<RunLoop> runLoop_;
    const Report report_;
    std::size_t told_ = 0;
};

} // namespace dmf::tool
