#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>

namespace dmf::internal {

/// What the exception that is being handled says of itself: its `what`, or "unknown" when it is no std::exception. For
/// catch clauses.
[[nodiscard]] std::string caughtText() noexcept;

/// Logs the exception that is being handled at "errors", as "AREA: exception 'TEXT' WHERE". For catch clauses.
void logCaught(std::string_view area, std::string_view where) noexcept;

/// Calls what a plug-in, a delegate or an observer supplied. What it throws, of any type, ends here: it is logged
/// (`guarded("Discovery", "in a filter", ...)`) and counts as that one's failure. Gives what the call gave, and nothing
/// when it threw; for a call without a result, whether it returned.
template <class Call>
auto guarded(std::string_view area, std::string_view where, Call&& call) noexcept
{
    using Result = std::invoke_result_t<Call>;
    try {
        if constexpr (std::is_void_v<Result>) {
            std::forward<Call>(call)();
            return true;
        } else {
            return std::optional<Result>(std::forward<Call>(call)());
        }
    } catch (...) {
        logCaught(area, where);
    }
    if constexpr (std::is_void_v<Result>)
        return false;
    else
        return std::optional<Result>();
}

} // namespace dmf::internal
