#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include <dmf/ADMDuplexDataChannel.h>
#include <dmf/platform/Data.h>
#include <dmf/platform/RunLoop.h>

#include "Output.h"

namespace dmf::tool {

class BlockReader;

/// Sends what a descriptor gives through an open channel, while it takes what the device answers. Works on the calling
/// thread's run loop.
class Transfer {
public:
    struct Options {
        double timeout = 30.0;             ///< for each block, and for the answer after the last
        bool answer = false;               ///< whether the device's answer is wanted
        std::optional<std::uint64_t> size; ///< of everything, if known
    };
    struct Outcome {
        ExitCode code = ExitCode::done;
        std::string reason; ///< of a failure
        std::uint64_t bytes = 0;
        std::string answer; ///< for JSON; otherwise it has been printed as it came
    };

    Transfer(Output& output, std::shared_ptr<ADMDuplexDataChannel> channel, Options options);
    ~Transfer();
    Transfer(const Transfer&) = delete;
    Transfer& operator=(const Transfer&) = delete;

    /// Ends when all is done, at a failure, and when the run loop is stopped.
    [[nodiscard]] Outcome run(int descriptor);

private:
    void sendBlock(const Data& block, const std::string& error);
    void didSendAll();
    void didWrite(std::uint32_t length);
    void didRead(const Data& block);
    void didFail(const Dictionary& error);
    void fail(ExitCode code, std::string reason);

    Output& output_;
    const std::shared_ptr<ADMDuplexDataChannel> channel_;
    const Options options_;
    const std::shared_ptr<RunLoop> runLoop_;
    const std::shared_ptr<ADMDuplexDataChannelDelegate> delegate_;
    std::unique_ptr<BlockReader> reader_;
    std::shared_ptr<RunLoopTimer> limit_;
    Outcome outcome_;
    bool sentAll_ = false;
    bool answerEnded_ = false;
    double shownAt_ = 0;
};

} // namespace dmf::tool
