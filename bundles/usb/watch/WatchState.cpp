#include "WatchState.h"

#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <utility>

#include <dmf/DMLog.h>

namespace dmf::usb {

WatchState::WatchState() : wake_(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {}

WatchState::~WatchState()
{
    if (wake_ >= 0)
        ::close(wake_);
}

void WatchState::end()
{
    {
        std::lock_guard guard(lock_);
        isEnding_ = true;
        listeners_.clear();
    }
    asked_.notify_all();
    wake();
}

bool WatchState::isEnding() const
{
    std::lock_guard guard(lock_);
    return isEnding_;
}

std::shared_ptr<const View> WatchState::view() const
{
    std::lock_guard guard(lock_);
    return view_;
}

void WatchState::show(std::shared_ptr<const View> view)
{
    {
        std::lock_guard guard(lock_);
        view_ = std::move(view);
    }
    callListeners(false);
}

std::shared_ptr<void> WatchState::listen(std::function<void()> changed)
{
    std::uint64_t number = 0;
    {
        std::lock_guard guard(lock_);
        number = ++lastListener_;
        listeners_[number] = std::make_shared<Listener>(Listener{std::move(changed)});
    }
    wake();
    static char something;
    return {&something, [state = shared_from_this(), number](void*) {
                std::shared_ptr<Listener> dropped; // what it holds goes without the lock
                std::lock_guard guard(state->lock_);
                if (const auto found = state->listeners_.find(number); found != state->listeners_.end()) {
                    dropped = std::move(found->second);
                    state->listeners_.erase(found);
                }
            }};
}

void WatchState::callListeners(bool onlyNew)
{
    std::vector<std::shared_ptr<Listener>> called;
    {
        std::lock_guard guard(lock_);
        if (!view_)
            return;
        for (const auto& [number, listener] : listeners_)
            if (std::exchange(listener->isNew, false) || !onlyNew)
                called.push_back(listener);
    }
    for (const auto& listener : called) {
        try {
            listener->changed();
        } catch (const std::exception& error) {
            DMFLog("errors", "Discovery: USB: %@", error);
        }
    }
}

void WatchState::wait(int descriptor, int milliseconds)
{
    pollfd watched[] = {{wake_, POLLIN, 0}, {descriptor, POLLIN, 0}};
    // Without the descriptor that wakes it, it looks by itself now and then.
    const int limit = wake_ >= 0 ? milliseconds : 100;
    (void)::poll(watched, 2, isEnding() ? 0 : limit);
    std::uint64_t count = 0;
    if (wake_ >= 0)
        (void)!::read(wake_, &count, sizeof count);
    callListeners(true);
}

void WatchState::wake() noexcept
{
    const std::uint64_t one = 1;
    if (wake_ >= 0)
        (void)!::write(wake_, &one, sizeof one);
}

void WatchState::ask(Question question)
{
    {
        std::lock_guard guard(lock_);
        questions_.push_back(std::move(question));
    }
    asked_.notify_one();
}

std::optional<Question> WatchState::nextQuestion()
{
    std::unique_lock held(lock_);
    asked_.wait(held, [this] { return isEnding_ || !questions_.empty(); });
    if (isEnding_)
        return std::nullopt;
    auto question = std::move(questions_.front());
    questions_.pop_front();
    return question;
}

void WatchState::answer(Answer answer)
{
    {
        std::lock_guard guard(lock_);
        answers_.push_back(std::move(answer));
    }
    wake();
}

std::vector<Answer> WatchState::takeAnswers()
{
    std::lock_guard guard(lock_);
    return std::exchange(answers_, {});
}

} // namespace dmf::usb
