#include "operations/CallbackPort.h"

#include <future>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include <gmock/gmock.h>

#include "TestOperation.h"
#include "support/LoopThread.h"
#include "support/TurnUntil.h"

using dmf::Date;
using dmf::RunLoop;
using dmf::internal::CallbackPort;
using testing::ElementsAre;
using namespace std::chrono_literals;

namespace {

constexpr const char* kMode = "port mode";

RunLoop::Result turn(const char* mode = kMode)
{
    return RunLoop::current()->runMode(mode, Date::distantPast());
}

/// A port and what its callbacks have told.
struct Stage {
    explicit Stage(std::size_t capacity = 8, CallbackPort::Seconds patience = 1h)
        : port(CallbackPort::create(capacity, patience))
    {
    }
    bool send(const std::string& text, std::function<void()> then = {})
    {
        return port->send(calling([this, text, then] {
            told.push_back(text);
            if (then)
                then();
        }));
    }
    std::shared_ptr<CallbackPort> port;
    std::vector<std::string> told;
};

} // namespace

TEST(CallbackPort, WaitsForRoomButNotForEver)
{
    Stage stage(2, 20ms);
    EXPECT_TRUE(stage.send("a"));
    EXPECT_TRUE(stage.send("b"));
    EXPECT_FALSE(stage.send("lost"));
    stage.port->scheduleInRunLoop(RunLoop::current(), kMode);
    turn();
    EXPECT_TRUE(stage.send("c"));
    EXPECT_TRUE(turnUntil([&] {
        turn();
        return stage.told.size() == 3;
    }));
    EXPECT_THAT(stage.told, ElementsAre("a", "b", "c"));

    // Room that comes while a sender waits is used at once, the first of it already.
    Stage patient(8, 60s);
    patient.port->scheduleInRunLoop(RunLoop::current(), kMode);
    for (int i = 0; i < 8; ++i)
        EXPECT_TRUE(patient.send("early"));
    std::promise<void> begun;
    auto sending = std::async(std::launch::async, [&] {
        begun.set_value();
        return patient.send("late");
    });
    begun.get_future().wait();
    EXPECT_EQ(sending.wait_for(20ms), std::future_status::timeout);
    turn();
    ASSERT_EQ(sending.wait_for(30s), std::future_status::ready);
    EXPECT_TRUE(sending.get());
}

TEST(CallbackPort, InvalidatingEndsTheWaitForRoom)
{
    Stage stage(1);
    EXPECT_TRUE(stage.send("a"));
    std::promise<void> begun;
    auto sending = std::async(std::launch::async, [&] {
        begun.set_value();
        return stage.send("b");
    });
    begun.get_future().wait();
    EXPECT_EQ(stage.port->invalidate().size(), 1u);
    EXPECT_FALSE(sending.get());
    stage.port->scheduleInRunLoop(RunLoop::current(), kMode);
    EXPECT_EQ(turn(), RunLoop::Result::finished);
    EXPECT_TRUE(stage.told.empty());
}

TEST(CallbackPort, OneTurnPerformsOneCallbackEvenWhenItThrowsOrTurnsTheLoop)
{
    Stage stage;
    stage.port->scheduleInRunLoop(RunLoop::current(), kMode);
    stage.send("throws", [] { throw std::runtime_error("callback"); });
    stage.send("stops", [] { RunLoop::current()->stop(); });
    stage.send("turns", [] { turn(); });
    stage.send("inside");
    stage.send("after");
    EXPECT_THROW(turn(), std::runtime_error);
    EXPECT_THAT(stage.told, ElementsAre("throws"));
    EXPECT_EQ(RunLoop::current()->runMode(kMode, Date::afterNow(10)), RunLoop::Result::stopped);
    EXPECT_THAT(stage.told, ElementsAre("throws", "stops"));
    turn();
    EXPECT_THAT(stage.told, ElementsAre("throws", "stops", "turns", "inside"));
    turn();
    EXPECT_EQ(stage.told.back(), "after");
    EXPECT_EQ(turn(), RunLoop::Result::timedOut) << "nothing is left, and the port still stands in the mode";
}

TEST(CallbackPort, ARunLoopThatLeavesLeavesTheRestToTheOthers)
{
    Stage stage;
    LoopThread other(kMode);
    stage.port->scheduleInRunLoop(other.loop(), kMode);
    stage.port->removeFromRunLoop(other.loop(), kMode);
    // This loop takes the first and leaves; the other, which waits, must get the second.
    stage.port->scheduleInRunLoop(RunLoop::current(), kMode);
    std::promise<std::thread::id> served;
    stage.send("here", [&] {
        stage.port->scheduleInRunLoop(other.loop(), kMode);
        stage.port->removeFromRunLoop(RunLoop::current(), kMode);
    });
    stage.send("there", [&] { served.set_value(std::this_thread::get_id()); });
    turn();
    EXPECT_EQ(served.get_future().get(), other.id());
    other.end();
    EXPECT_THAT(stage.told, ElementsAre("here", "there"));

    // The other's thread has ended; callbacks wait for a loop that turns.
    stage.send("later");
    stage.port->scheduleInRunLoop(RunLoop::current(), "another mode");
    stage.port->scheduleInRunLoop(RunLoop::current(), "another mode");
    turn("another mode");
    EXPECT_EQ(stage.told.back(), "later");
    stage.port->removeFromRunLoop(RunLoop::current(), "another mode");
    EXPECT_EQ(turn("another mode"), RunLoop::Result::finished);
}
