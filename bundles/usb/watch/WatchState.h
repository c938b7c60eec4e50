#pragma once

#include <condition_variable>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "View.h"
#include "device/Choice.h"

namespace dmf::usb {

/// A question to a device for its ID.
struct Question {
    std::uint64_t sighting = 0;
    std::string node;
    int configurationIndex = 0;
    Interface interface;
};
struct Answer {
    std::uint64_t sighting = 0;
    std::optional<std::string> deviceId;
};

/// What a watch, its two threads and its listeners share; each of them keeps it. Thread-safe.
class WatchState : public std::enable_shared_from_this<WatchState> {
public:
    WatchState();
    ~WatchState();
    WatchState(const WatchState&) = delete;
    WatchState& operator=(const WatchState&) = delete;

    void end();
    [[nodiscard]] bool isEnding() const;

    [[nodiscard]] std::shared_ptr<const View> view() const;
    /// Sets the view and calls the listeners, on this thread.
    void show(std::shared_ptr<const View> view);
    [[nodiscard]] std::shared_ptr<void> listen(std::function<void()> changed);

    /// Waits until `descriptor` (or none, for -1) is readable, an answer or a listener came, the end came, or the
    /// milliseconds (-1 for no limit) have passed.
    void wait(int descriptor, int milliseconds);

    void ask(Question question);
    /// Waits for the next question; nothing at the end.
    [[nodiscard]] std::optional<Question> nextQuestion();
    void answer(Answer answer);
    [[nodiscard]] std::vector<Answer> takeAnswers();

private:
    void wake() noexcept;
    void callListeners(bool onlyNew);

    struct Listener {
        std::function<void()> changed;
        bool isNew = true;
    };
    const int wake_; // an event descriptor
    mutable std::mutex lock_;
    std::condition_variable asked_;
    bool isEnding_ = false; // this and the following guarded by lock_
    std::shared_ptr<const View> view_;
    std::map<std::uint64_t, std::shared_ptr<Listener>> listeners_;
    std::uint64_t lastListener_ = 0;
    std::deque<Question> questions_;
    std::vector<Answer> answers_;
};

} // namespace dmf::usb
