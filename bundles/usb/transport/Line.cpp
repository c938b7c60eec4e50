#include "Line.h"

#include <libusb.h>
#include <pthread.h>
#include <signal.h>
#include <sys/time.h>

#include <algorithm>
#include <cstring>
#include <system_error>
#include <thread>

#include <dmf/DMLog.h>

namespace dmf::usb {

namespace {
constexpr std::size_t kSendSlots = 4, kSendSize = 64 * 1024;
constexpr std::size_t kReceiveSlots = 2, kReceiveSize = 16 * 1024;
/// A device without anything to say answers with empty packets as fast as it is asked.
constexpr std::chrono::milliseconds kFirstPause{1}, kLongestPause{16};
constexpr std::chrono::milliseconds kEventInterval{1000}, kShuttingInterval{20};
constexpr std::chrono::milliseconds kOpeningInterval{50};
/// For devices that lose what they have taken last when the interface is given back at once.
constexpr std::chrono::milliseconds kDelayedClose{500};
} // namespace

Line::Line(AttachedDevice device, Choice choice) : device_(std::move(device)), choice_(std::move(choice)) {}

Line::~Line() = default;

bool Line::start()
{
    sigset_t all, before;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, &before); // the library's own thread inherits it, too
    bool isRunning = true;
    try {
        std::thread([self = shared_from_this()] {
            pthread_setname_np(pthread_self(), "dmf-usb-io");
            self->run();
        }).detach();
    } catch (const std::system_error&) {
        isRunning = false;
    }
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
    return isRunning;
}

Line::State Line::awaitOpening(const std::function<bool()>& isGivenUp)
{
    std::unique_lock held(lock_);
    while (state_ == State::opening) {
        if (changed_.wait_for(held, kOpeningInterval) != std::cv_status::timeout)
            continue;
        held.unlock();
        const bool isOver = isGivenUp && isGivenUp();
        held.lock();
        if (isOver)
            break;
    }
    return state_;
}

Claim::Failure Line::failure() const
{
    std::lock_guard guard(lock_);
    return failure_;
}

std::string Line::reason() const
{
    std::lock_guard guard(lock_);
    return reason_;
}

void Line::setState(State state)
{
    state_ = state;
    changed_.notify_all();
}

// On the line's own thread

void Line::run()
{
    Claim::Result result;
    try {
        result = Claim::make(device_, choice_);
        if (result.claim && choice_.quirks.wantsSoftReset)
            (void)resetPort(result.claim->control(), choice_.interface);
        std::unique_lock held(lock_);
        if (result.claim && state_ == State::opening) {
            claim_ = std::move(result.claim);
            const auto* const out = choice_.interface.bulk(false);
            const auto* const in = choice_.interface.bulk(true);
            const auto ended = [](void* line) { static_cast<Line*>(line)->changed_.notify_all(); };
            if (out)
                out_ = std::make_unique<Transfers>(lock_, *out, kSendSlots, kSendSize);
            if (in && !choice_.quirks.isUnidirectional)
                in_ = std::make_unique<Transfers>(lock_, *in, kReceiveSlots, kReceiveSize);
            for (auto* const each : {out_.get(), in_.get()})
                if (each)
                    each->attach(claim_->handle(), ended, this);
            setState(State::open);
            held.unlock();
            serve();
        }
    } catch (const std::exception& error) {
        result.failure = Claim::Failure::failed;
        result.reason = error.what();
    }
    result.claim = nullptr;
    giveBack();
    std::lock_guard guard(lock_);
    failure_ = result.failure;
    reason_ = std::move(result.reason);
    setState(State::over);
}

/// Until it is shut and nothing is under way any more.
void Line::serve()
{
    std::unique_lock held(lock_);
    while (true) {
        const bool isShutting = state_ == State::shutting;
        bool isBusy = false;
        for (auto* const each : {out_.get(), in_.get()})
            if (each && each->areUnderWay()) {
                isBusy = true;
                if (isShutting)
                    each->cancel();
            }
        if (isShutting && !isBusy)
            return;
        if (isGone_ && !isBusy) { // no event can come any more
            changed_.wait(held);
            continue;
        }
        if (!isShutting) {
            clearHalts(held);
            beginReceiving();
        }
        auto limit = isShutting ? kShuttingInterval : kEventInterval;
        if (canReceive() && !mayReceiveNow())
            limit = std::min(limit, std::chrono::ceil<std::chrono::milliseconds>(
                                        std::max(nextReceiving_ - Clock::now(), Clock::duration())));
        held.unlock();
        handleEvents(limit);
        held.lock();
        changed_.notify_all();
    }
}

void Line::handleEvents(std::chrono::milliseconds limit)
{
    timeval time{static_cast<time_t>(limit.count() / 1000), static_cast<suseconds_t>(limit.count() % 1000 * 1000)};
    (void)libusb_handle_events_timeout_completed(claim_->context(), &time, nullptr);
}

/// A halt is cleared once, and then the transfer goes on where it was. The device may take its time for the answer, so
/// this is done here, and without the lock.
void Line::clearHalts(std::unique_lock<std::mutex>& held)
{
    const auto clear = [&](Course& course, Transfers* transfers) {
        if (!transfers || !course.isHalted || transfers->areUnderWay())
            return;
        const auto address = transfers->endpoint().address;
        held.unlock();
        const int error = libusb_clear_halt(claim_->handle(), address);
        held.lock();
        course.isHalted = false;
        if (error != 0)
            course.status = ProviderStatus::failed;
        changed_.notify_all();
    };
    clear(sending_, out_.get());
    clear(receiving_, in_.get());
}

void Line::giveBack()
{
    std::unique_ptr<Claim> claim;
    bool waits = false;
    {
        std::lock_guard guard(lock_);
        waits = hasSent_ && choice_.quirks.wantsDelayedClose;
    }
    if (waits)
        std::this_thread::sleep_for(kDelayedClose);
    std::lock_guard controlGuard(controlLock_);
    {
        std::lock_guard guard(lock_);
        out_ = nullptr;
        in_ = nullptr;
        claim = std::move(claim_);
    }
}

// On any thread

void Line::interrupt() noexcept
{
    if (claim_)
        libusb_interrupt_event_handler(claim_->context());
}

void Line::shut(Clock::time_point until) noexcept
{
    std::unique_lock held(lock_);
    if (state_ == State::over)
        return;
    setState(State::shutting);
    interrupt();
    changed_.wait_until(held, until, [this] { return state_ == State::over; });
}

void Line::endBy(Course& course, Transfers& transfers, TransferEnd end)
{
    transfers.cancel();
    if (end == TransferEnd::gone) {
        isGone_ = true;
        interrupt();
    }
    if (end == TransferEnd::halted && !course.wasHalted) {
        course.isHalted = course.wasHalted = true;
        interrupt();
    } else {
        course.status = ProviderStatus::failed;
    }
}

Line::Progress Line::send(std::span<const std::uint8_t> bytes)
{
    std::lock_guard guard(lock_);
    if (!out_ || state_ != State::open)
        return {0, ProviderStatus::failed};
    std::size_t told = 0;
    while (auto* const slot = out_->ended()) {
        if (sending_.isHalted) {
            out_->drop(); // behind the one that was halted nothing is taken
            continue;
        }
        told += slot->moved;
        if (slot->moved > 0)
            sending_.wasHalted = false;
        const bool isWhole = slot->end == TransferEnd::done && slot->moved == slot->length;
        // Those taken back behind one that failed have ended the course already.
        if (!isWhole && slot->end != TransferEnd::cancelled && sending_.status == ProviderStatus::success)
            endBy(sending_, *out_, slot->end);
        out_->drop();
    }
    told = std::min(told, bytes.size());
    if (sending_.status != ProviderStatus::success && out_->isEmpty())
        return {static_cast<std::uint32_t>(told), sending_.status};
    while (sending_.status == ProviderStatus::success && !sending_.isHalted && out_->hasFree()) {
        const auto begun = told + out_->lengthBegun();
        if (begun >= bytes.size())
            break;
        if (!out_->begin(bytes.subspan(begun), true)) {
            endBy(sending_, *out_, TransferEnd::failed);
            break;
        }
        hasSent_ = true;
    }
    if (sending_.status != ProviderStatus::success && out_->isEmpty())
        return {static_cast<std::uint32_t>(told), sending_.status};
    return {static_cast<std::uint32_t>(told), ProviderStatus::success};
}

std::uint32_t Line::withdraw(Clock::time_point until)
{
    std::unique_lock held(lock_);
    if (!out_)
        return 0;
    out_->cancel();
    interrupt();
    // Pieces of `this` may go meanwhile: the line is shut by others.
    changed_.wait_until(held, until, [this] { return !out_ || !out_->areUnderWay(); });
    if (!out_)
        return 0;
    if (out_->areUnderWay()) {
        sending_.status = ProviderStatus::failed; // nobody knows what it will take of them
        return 0;
    }
    std::size_t moved = 0;
    for (bool isContinuous = true; auto* const slot = out_->ended(); out_->drop()) {
        if (isContinuous)
            moved += slot->moved;
        isContinuous = isContinuous && slot->moved == slot->length;
        if (slot->end != TransferEnd::done && slot->end != TransferEnd::cancelled && !sending_.isHalted &&
            sending_.status == ProviderStatus::success)
            endBy(sending_, *out_, slot->end);
    }
    return static_cast<std::uint32_t>(moved);
}

bool Line::canReceive() const
{
    return in_ && isReading_ && state_ == State::open && receiving_.status == ProviderStatus::success &&
           !receiving_.isHalted && in_->hasFree();
}

bool Line::mayReceiveNow() const
{
    return Clock::now() >= nextReceiving_;
}

void Line::beginReceiving()
{
    if (!canReceive() || !mayReceiveNow())
        return;
    while (in_->hasFree())
        if (!in_->beginReceiving()) {
            endBy(receiving_, *in_, TransferEnd::failed);
            return;
        }
}

Line::Progress Line::receive(std::span<std::uint8_t> space)
{
    std::lock_guard guard(lock_);
    if (state_ != State::open)
        return {0, ProviderStatus::failed};
    if (!in_)
        return {0, ProviderStatus::peerEnded};
    isReading_ = true;
    std::size_t count = 0;
    while (auto* const slot = in_->ended()) {
        const auto copied = std::min(slot->moved - readOffset_, space.size() - count);
        std::memcpy(space.data() + count, slot->bytes.data() + readOffset_, copied);
        count += copied;
        readOffset_ += copied;
        if (readOffset_ < slot->moved)
            break; // no more room
        readOffset_ = 0;
        if (slot->moved > 0) {
            receiving_.wasHalted = false;
            emptyAnswers_ = 0;
        } else if (slot->end == TransferEnd::done) {
            const auto pause = kFirstPause * (1 << std::min(emptyAnswers_++, 4));
            nextReceiving_ = Clock::now() + std::min<Clock::duration>(pause, kLongestPause);
        }
        if (slot->end != TransferEnd::done && slot->end != TransferEnd::cancelled && !receiving_.isHalted &&
            receiving_.status == ProviderStatus::success)
            endBy(receiving_, *in_, slot->end);
        in_->drop();
    }
    if (count == 0 && receiving_.status != ProviderStatus::success && in_->isEmpty())
        return {0, receiving_.status};
    if (mayReceiveNow())
        beginReceiving();
    else
        interrupt(); // the thread goes by the new pause
    return {static_cast<std::uint32_t>(count), ProviderStatus::success};
}

bool Line::isReady(const TransportConnection::Wait& wait) const
{
    if (state_ != State::open)
        return true;
    const auto hasNews = [](const Course& course, Transfers* transfers) {
        return !transfers || transfers->ended() || (course.status != ProviderStatus::success && transfers->isEmpty());
    };
    // With nothing under way and no halt in the way there is something to begin.
    return (wait.reading && hasNews(receiving_, in_.get())) ||
           (wait.writing && (hasNews(sending_, out_.get()) || (!sending_.isHalted && out_->isEmpty())));
}

void Line::wait(const TransportConnection::Wait& wait)
{
    std::unique_lock held(lock_);
    const auto isOver = [&] { return isReady(wait) || (wait.waking && wakes_ > 0); };
    if (wait.until)
        changed_.wait_until(held, *wait.until, isOver);
    else
        changed_.wait(held, isOver);
    if (wait.waking)
        wakes_ = 0;
}

void Line::wake() noexcept
{
    std::lock_guard guard(lock_);
    ++wakes_;
    changed_.notify_all();
}

bool Line::control(const std::function<void(const ControlTransfer& transfer, const Choice& choice)>& use)
{
    std::lock_guard controlGuard(controlLock_);
    const Claim* claim = nullptr;
    {
        std::lock_guard guard(lock_);
        claim = state_ == State::open ? claim_.get() : nullptr;
    }
    if (!claim)
        return false;
    use(claim->control(), choice_);
    return true;
}

} // namespace dmf::usb
