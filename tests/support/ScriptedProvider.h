#pragma once

#include <atomic>
#include <cerrno>
#include <condition_variable>
#include <cstring>
#include <deque>
#include <functional>
#include <future>
#include <memory>
#include <mutex>
#include <stdexcept>
#include <string_view>
#include <utility>

#include <dmf/ADMConnectionProvider.h>
#include <dmf/ADMDuplexDataChannelBase.h>
#include <dmf/DMKeys.h>

#include "FakeServiceInfo.h"

/// A provider whose steps the test writes. Its worker does nothing but run, one after the other and with the lock held,
/// the pieces of work that the test posts.
class ScriptedProvider final : public ADMConnectionProvider {
public:
    using Work = std::function<void(ScriptedProvider&)>;
    enum class Start { serves, refuses, endsSilently, throws, hasNoThread };

    ScriptedProvider(const std::shared_ptr<ADMDuplexDataChannelBase>& parent, std::shared_ptr<ADMCoreModelInfo> info,
                     std::shared_ptr<IDMDevice> device)
        : ADMConnectionProvider(parent, std::move(info), std::move(device))
    {
    }

    std::function<Status()> onOpen;
    std::function<Status(ADMTransferTicket&)> onRead, onWrite, onFinishWriting;
    bool hasPrivateThread = false;
    Start startAs = Start::serves;
    std::atomic<int> opened{0}, closed{0}, started{0};

    bool isOpen() override { return isOpen_; }
    using ADMConnectionProvider::isPending;
    using ADMConnectionProvider::notifyParentOnTicket;
    using ADMConnectionProvider::readTicket;
    using ADMConnectionProvider::shouldCancelRead;
    using ADMConnectionProvider::startWorker;
    using ADMConnectionProvider::writeTicket;

    /// Puts text where the read wants it and tells of it.
    void arrive(std::string_view text, Status status = 0)
    {
        auto* const ticket = readTicket();
        std::memcpy(ticket->space().data(), text.data(), text.size());
        ticket->advance(static_cast<std::uint32_t>(text.size()));
        notifyParentOnTicket(ticket, status);
    }

    /// Has the worker do `work`; the future is ready once it has.
    std::future<void> post(Work work, bool withLock = true)
    {
        auto task =
            std::packaged_task<void(ScriptedProvider&)>([work = std::move(work), withLock](ScriptedProvider& provider) {
                std::unique_lock held(provider.lock(), std::defer_lock);
                if (withLock)
                    held.lock();
                work(provider);
            });
        auto done = task.get_future();
        std::lock_guard guard(workLock_);
        work_.push_back(std::move(task));
        wake_.notify_all();
        return done;
    }
    /// Ends the worker's loop as if it had broken down.
    void breakDown()
    {
        std::lock_guard guard(workLock_);
        isBroken_ = true;
        wake_.notify_all();
    }
    /// Waits until a request has been handed to the serving worker.
    void waitForRequest()
    {
        std::unique_lock held(workLock_);
        wake_.wait(held, [this] { return requests_ > 0; });
        --requests_;
    }

    std::int32_t start() override { return startAs == Start::hasNoThread ? EAGAIN : ADMConnectionProvider::start(); }
    void signalForStop() override
    {
        ADMConnectionProvider::signalForStop();
        std::lock_guard guard(workLock_);
        wake_.notify_all();
    }

protected:
    Status performOpen() override
    {
        ++opened;
        setMaxPacketSizes(4, 4);
        const Status status = onOpen ? onOpen() : Status{0};
        isOpen_ = status == 0;
        return status;
    }
    Status performClose() override
    {
        ++closed;
        isOpen_ = false;
        return 0;
    }
    Status performRead(ADMTransferTicket& ticket) override { return onRead(ticket); }
    Status performWrite(ADMTransferTicket& ticket) override { return onWrite(ticket); }
    Status performFinishWriting(ADMTransferTicket& ticket) override
    {
        return onFinishWriting ? onFinishWriting(ticket) : ADMConnectionProvider::performFinishWriting(ticket);
    }
    bool hasPrivateAsyncThread() const override { return hasPrivateThread; }
    void requestArrived(ADMTransferTicket&) override
    {
        std::lock_guard guard(workLock_);
        ++requests_;
        wake_.notify_all();
    }
    std::uintptr_t run() override
    {
        ++started;
        if (startAs == Start::throws)
            throw std::runtime_error("no thread today");
        if (startAs == Start::endsSilently)
            return 0;
        if (startAs == Start::refuses) {
            signalCannotServe();
            return 0;
        }
        signalReady();
        std::unique_lock held(workLock_);
        while (true) {
            wake_.wait(held, [this] { return isStopRequested() || isBroken_ || !work_.empty(); });
            if (isStopRequested() || std::exchange(isBroken_, false))
                return 0;
            auto work = std::move(work_.front());
            work_.pop_front();
            held.unlock();
            work(*this);
            held.lock();
        }
    }

private:
    std::atomic<bool> isOpen_{false};
    std::mutex workLock_;
    std::condition_variable wake_;
    std::deque<std::packaged_task<void(ScriptedProvider&)>> work_;
    bool isBroken_ = false;
    int requests_ = 0;
};

/// A channel over a scripted provider, which it makes at its first opening.
class ScriptedChannel final : public ADMDuplexDataChannelBase {
public:
    using ADMDuplexDataChannelBase::ADMDuplexDataChannelBase;

    /// Called with the provider before it is opened for the first time.
    std::function<void(ScriptedProvider&)> prepare;
    std::shared_ptr<ScriptedProvider> scripted() const
    {
        return std::static_pointer_cast<ScriptedProvider>(provider());
    }
    double openTimeout = 0;

protected:
    std::int16_t createAndOpenProviderWithTimeout(double timeout) override
    {
        openTimeout = timeout;
        auto made = ADMConnectionProvider::initWithParent<ScriptedProvider>(shared_from_this(), nullptr,
                                                                            serviceInfo()->device());
        setProvider(made);
        if (prepare)
            prepare(*made);
        return made->open();
    }
};

inline std::shared_ptr<ScriptedChannel> makeScriptedChannel(std::shared_ptr<ADMServiceInfo> info = nullptr)
{
    return ADMDuplexDataChannelBase::initWithServiceInfo<ScriptedChannel>(
        info ? std::move(info) : std::make_shared<FakeServiceInfo>(), "Print");
}
