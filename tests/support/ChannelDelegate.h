#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include <dmf/ADMDuplexDataChannel.h>
#include <dmf/DMKeys.h>
#include <dmf/platform/RunLoop.h>

/// Turns the current run loop's default mode until the condition holds; false after ten seconds.
inline bool turnUntil(const std::function<bool()>& condition)
{
    const auto loop = dmf::RunLoop::current();
    const auto limit = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    // Keeps the mode from ending at once when nothing else is scheduled in it.
    const auto idle = dmf::RunLoopSource::create({});
    loop->addSource(idle, dmf::kDefaultRunLoopMode);
    while (!condition() && std::chrono::steady_clock::now() < limit)
        loop->runMode(dmf::kDefaultRunLoopMode, dmf::Date::now().addingTimeInterval(0.05), true);
    idle->invalidate();
    return condition();
}

/// Writes down what a channel tells: "read:abc", "wrote:3", "readDone", "writeDone", "failed:1/2" (code and state).
struct RecordingDelegate {
    std::vector<std::string> told;
    std::string bytes;
    std::shared_ptr<ADMDuplexDataChannelDelegate> delegate = std::make_shared<ADMDuplexDataChannelDelegate>();

    RecordingDelegate()
    {
        delegate->didReadDataBlock = [this](ADMDuplexDataChannel&, const dmf::Data& block) {
            told.push_back("read:" + std::string(block.text()));
            bytes += block.text();
        };
        delegate->didWriteDataBlockOfLength = [this](ADMDuplexDataChannel&, std::uint32_t length) {
            told.push_back("wrote:" + std::to_string(length));
        };
        delegate->didFinishReadData = [this](ADMDuplexDataChannel&) { told.emplace_back("readDone"); };
        delegate->didFinishWriteData = [this](ADMDuplexDataChannel&) { told.emplace_back("writeDone"); };
        delegate->didFailWithError = [this](ADMDuplexDataChannel&, const dmf::Dictionary& error) {
            told.push_back("failed:" + describe(error));
        };
    }
    RecordingDelegate(const RecordingDelegate&) = delete;
    RecordingDelegate& operator=(const RecordingDelegate&) = delete;

    /// "code/state", followed by ":processed" where the record tells it.
    static std::string describe(const dmf::Dictionary& error)
    {
        if (error.empty())
            return "none";
        auto text = error[kDMErrorCode].description() + "/" + error[kDMDataChannelState].description();
        if (const auto* const processed = error.find(kDMDataChannelProcessedDataLength))
            text += ":" + processed->description();
        return text;
    }
    bool waitFor(const std::string& event)
    {
        return turnUntil([&] { return !told.empty() && told.back() == event; });
    }
};
