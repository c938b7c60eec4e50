#include "Line.h"

#include <algorithm>
#include <cstring>

namespace dmf::simulated {

Line::Line(const Script& script) : script_(script)
{
    addAnswer(script.greeting, Clock::now());
}

void Line::addAnswer(Data bytes, Clock::time_point due)
{
    if (!bytes.empty())
        answers_.push_back({std::move(bytes), due});
}

Line::Result Line::read(std::span<std::uint8_t> space, std::uint32_t& count)
{
    count = 0;
    if (isBroken())
        return Result::broken;
    if (hasEnded())
        return Result::peerEnded;
    if (answers_.empty() || Clock::now() < answers_.front().due)
        return Result::nothingYet;
    const auto rest = answers_.front().bytes.bytes().subspan(givenOfFirst_);
    auto size = std::min<std::size_t>({rest.size(), space.size(), script_.packetSize});
    if (script_.endAfter)
        size = static_cast<std::size_t>(std::min<std::uint64_t>(size, *script_.endAfter - given_));
    std::memcpy(space.data(), rest.data(), size);
    given_ += size;
    givenOfFirst_ += size;
    if (givenOfFirst_ == answers_.front().bytes.size()) {
        answers_.pop_front();
        givenOfFirst_ = 0;
    }
    count = static_cast<std::uint32_t>(size);
    return Result::moved;
}

Line::Result Line::write(std::span<const std::uint8_t> bytes, std::uint32_t& count)
{
    count = 0;
    if (isBroken())
        return Result::broken;
    const auto now = Clock::now();
    if (script_.neverReads || now < readyToTake_)
        return Result::nothingYet;
    readyToTake_ = now + script_.writeDelay;
    auto size = std::min<std::size_t>(bytes.size(), script_.packetSize);
    if (script_.breakAfter)
        size = static_cast<std::size_t>(std::min<std::uint64_t>(size, *script_.breakAfter - taken_));
    taken_ += size;
    if (script_.echoes)
        request_.append(bytes.first(size));
    count = static_cast<std::uint32_t>(size);
    return Result::moved;
}

void Line::endRequest()
{
    addAnswer(script_.echoes ? std::exchange(request_, {}) : script_.answer, Clock::now() + script_.answerDelay);
}

std::optional<Clock::time_point> Line::nextRead() const
{
    if (isBroken() || hasEnded())
        return Clock::time_point::min();
    if (answers_.empty())
        return std::nullopt;
    return answers_.front().due;
}

std::optional<Clock::time_point> Line::nextWrite() const
{
    if (isBroken())
        return Clock::time_point::min();
    if (script_.neverReads)
        return std::nullopt;
    return readyToTake_;
}

} // namespace dmf::simulated
