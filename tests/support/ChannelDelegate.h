#pragma once

#include <memory>
#include <string>
#include <vector>

#include <dmf/ADMDuplexDataChannel.h>
#include <dmf/DMKeys.h>

#include "TurnUntil.h"

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

/// What becomes of a write: "done", or the description of its error.
inline std::string written(ADMDuplexDataChannel& channel, const dmf::Data& data, double timeout = 10)
{
    dmf::Dictionary error;
    return channel.writeData(data, timeout, &error) ? "done" : RecordingDelegate::describe(error);
}

/// The bytes that a read of that length gives, followed by the description of its error if there is one.
inline std::string received(ADMDuplexDataChannel& channel, std::uint32_t length, double timeout = 10)
{
    dmf::Dictionary error;
    dmf::Data data;
    const bool isDone = channel.readDataOfLength(data, length, timeout, &error);
    return std::string(data.text()) + (isDone ? "" : " " + RecordingDelegate::describe(error));
}
