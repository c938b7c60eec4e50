#pragma once

#include <memory>
#include <string>

namespace dmf::tool {

/// Listens, from its making to its end, to what the library logs on this thread, and hands it on to the logger that
/// would have had it. Where the library refuses, its reason is told in the log only.
class ReasonLog {
public:
    ReasonLog();
    ~ReasonLog();
    ReasonLog(const ReasonLog&) = delete;
    ReasonLog& operator=(const ReasonLog&) = delete;

    /// The last message without its area ("ServiceInfo: ") and full stop; empty when there was none.
    [[nodiscard]] std::string reason() const;

private:
    class Logger;
    const std::shared_ptr<Logger> logger_;
};

} // namespace dmf::tool
