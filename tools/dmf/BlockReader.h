#pragma once

#include <functional>
#include <memory>
#include <string>

#include <dmf/platform/Data.h>
#include <dmf/platform/RunLoop.h>

namespace dmf::tool {

/// Reads a file or a pipe block by block on a thread of its own, so that the run loop can serve the device meanwhile,
/// even while standard input has nothing to give.
class BlockReader {
public:
    /// Told on the run loop's thread: a block; an empty one at the end; or, with an empty one, why reading failed.
    using Ready = std::function<void(const Data& block, const std::string& error)>;

    /// Reads from the descriptor, which must stay open as long as this object lives.
    BlockReader(int descriptor, std::shared_ptr<RunLoop> runLoop, Ready ready);
    /// Ends the thread; `ready` is not called any more.
    ~BlockReader();
    BlockReader(const BlockReader&) = delete;
    BlockReader& operator=(const BlockReader&) = delete;

    /// Asks for the next block: one call of `ready`.
    void next();

private:
    struct State;
    const std::unique_ptr<State> state_;
};

} // namespace dmf::tool
