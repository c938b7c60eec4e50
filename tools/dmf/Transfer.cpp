#include "Transfer.h"

#include <dmf/DMKeys.h>

#include <limits>
#include <utility>

#include "BlockReader.h"

namespace dmf::tool {

namespace {

constexpr double kNoTimeout = 3600.0; // channels take 1800 seconds and more as none
constexpr double kProgressInterval = 0.1;
constexpr std::int32_t kReadFailed = 1; // under kDMDataChannelState

ChannelError codeOf(const Dictionary& error)
{
    const Number* const code = error[kDMErrorCode].asNumber();
    return code ? static_cast<ChannelError>(code->int32Value()) : ChannelError::failed;
}

bool concernsReading(const Dictionary& error)
{
    const Number* const state = error[kDMDataChannelState].asNumber();
    return state && state->int32Value() == kReadFailed;
}

} // namespace

Transfer::Transfer(Output& output, std::shared_ptr<ADMDuplexDataChannel> channel, Options options)
    : output_(output), channel_(std::move(channel)), options_(options), runLoop_(RunLoop::current()),
      delegate_(std::make_shared<ADMDuplexDataChannelDelegate>())
{
    delegate_->didReadDataBlock = [this](ADMDuplexDataChannel&, const Data& block) { didRead(block); };
    delegate_->didWriteDataBlockOfLength = [this](ADMDuplexDataChannel&, std::uint32_t length) { didWrite(length); };
    delegate_->didFinishWriteData = [this](ADMDuplexDataChannel&) { reader_->next(); };
    delegate_->didFailWithError = [this](ADMDuplexDataChannel&, const Dictionary& error) { didFail(error); };
}

Transfer::~Transfer()
{
    channel_->removeFromRunLoop(runLoop_, kDefaultRunLoopMode);
    if (limit_)
        limit_->invalidate();
}

Transfer::Outcome Transfer::run(int descriptor)
{
    reader_ = std::make_unique<BlockReader>(
        descriptor, runLoop_, [this](const Data& block, const std::string& error) { sendBlock(block, error); });
    channel_->setDelegate(delegate_);
    channel_->scheduleInRunLoop(runLoop_, kDefaultRunLoopMode);
    // Asked for before anything is sent, and whether it is wanted or not: a device that cannot get rid of its answer
    // may stop reading, and closing a connection with unread bytes can cost it the last ones that were sent.
    answerEnded_ = !channel_->scheduleReadDataWithTimeout(kNoTimeout);
    reader_->next();
    if (outcome_.code == ExitCode::done)
        runLoop_->run();
    reader_.reset();
    return std::move(outcome_);
}

void Transfer::sendBlock(const Data& block, const std::string& error)
{
    if (!error.empty())
        fail(ExitCode::failed, "cannot read what is to be sent: " + error);
    else if (block.empty())
        didSendAll();
    else
        channel_->scheduleWriteData(block, options_.timeout); // a refusal is told to didFail
}

void Transfer::didSendAll()
{
    sentAll_ = true;
    if (!options_.answer || answerEnded_) {
        runLoop_->stop();
        return;
    }
    limit_ = RunLoopTimer::create(Date::afterNow(options_.timeout), 0, RunLoopTimer::Repeat::no,
                                  [this](RunLoopTimer&) { runLoop_->stop(); });
    runLoop_->addTimer(limit_, kDefaultRunLoopMode);
}

void Transfer::didWrite(std::uint32_t length)
{
    outcome_.bytes += length;
    const double now = Date::now().secondsSince1970();
    if (!output_.showsProgress() || now - shownAt_ < kProgressInterval)
        return;
    shownAt_ = now;
    std::string text = byteCount(outcome_.bytes);
    if (options_.size && *options_.size > 0)
        text +=
            " of " + byteCount(*options_.size) + " (" + std::to_string(outcome_.bytes * 100 / *options_.size) + "%)";
    output_.progress("sending: " + text);
}

void Transfer::didRead(const Data& block)
{
    if (!options_.answer)
        return;
    if (output_.json)
        outcome_.answer += block.text();
    else
        output_.bytes(block.text());
}

void Transfer::didFail(const Dictionary& error)
{
    const ChannelError code = codeOf(error);
    if (concernsReading(error)) { // however it ends, there is no more answer; sending shows whether the device is there
        answerEnded_ = true;
        if (sentAll_)
            runLoop_->stop();
    } else if (code == ChannelError::timedOut) {
        fail(ExitCode::timedOut, "the device took nothing for " + decimal(options_.timeout, 1) + " s");
    } else {
        fail(ExitCode::failed, "the device broke the connection");
    }
}

void Transfer::fail(ExitCode code, std::string reason)
{
    outcome_.code = code;
    outcome_.reason = std::move(reason);
    runLoop_->stop();
}

} // namespace dmf::tool
