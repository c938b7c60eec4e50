#pragma once

#include <future>
#include <memory>
#include <string>
#include <thread>
#include <utility>

#include <dmf/platform/RunLoop.h>

/// A run loop on a thread of its own that turns one mode until it is stopped or `end` is called, half a minute at most.
class LoopThread {
public:
    explicit LoopThread(std::string mode)
    {
        std::promise<std::shared_ptr<dmf::RunLoop>> started;
        auto loop = started.get_future();
        thread_ = std::thread([this, started = std::move(started), mode = std::move(mode)]() mutable {
            const auto keeper = dmf::RunLoopSource::create({});
            dmf::RunLoop::current()->addSource(keeper, mode);
            started.set_value(dmf::RunLoop::current());
            result_ = dmf::RunLoop::current()->runMode(mode, dmf::Date::afterNow(30));
        });
        loop_ = loop.get();
    }
    ~LoopThread() { end(); }
    LoopThread(const LoopThread&) = delete;
    LoopThread& operator=(const LoopThread&) = delete;

    /// Stops the loop, and gives what its run came to.
    dmf::RunLoop::Result end()
    {
        if (thread_.joinable()) {
            loop_->stop();
            thread_.join();
        }
        return result_;
    }
    const std::shared_ptr<dmf::RunLoop>& loop() const { return loop_; }
    std::thread::id id() const { return thread_.get_id(); }

private:
    std::shared_ptr<dmf::RunLoop> loop_;
    dmf::RunLoop::Result result_ = dmf::RunLoop::Result::finished;
    std::thread thread_;
};
