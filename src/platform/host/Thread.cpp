#include "platform/host/Thread.h"

#include <errno.h>
#include <signal.h>

#include <memory>
#include <string>
#include <utility>

#include "platform/host/ForkGuard.h"

namespace dmf::internal {
namespace {

constinit thread_local bool gIsLibraryThread = false;

struct Beginning {
    std::string name;
    std::function<void()> body;
};

void* enterThread(void* argument)
{
    const std::unique_ptr<Beginning> beginning(static_cast<Beginning*>(argument));
    gIsLibraryThread = true;
    pthread_setname_np(pthread_self(), beginning->name.c_str());
    beginning->body();
    return nullptr;
}

class Attributes {
public:
    explicit Attributes(ThreadForm form)
    {
        isInitialized_ = pthread_attr_init(&attributes_) == 0;
        const int state = form == ThreadForm::detached ? PTHREAD_CREATE_DETACHED : PTHREAD_CREATE_JOINABLE;
        isReady_ = isInitialized_ && pthread_attr_setdetachstate(&attributes_, state) == 0;
    }
    ~Attributes()
    {
        if (isInitialized_)
            pthread_attr_destroy(&attributes_);
    }
    Attributes(const Attributes&) = delete;
    Attributes& operator=(const Attributes&) = delete;

    [[nodiscard]] bool isReady() const noexcept { return isReady_; }
    [[nodiscard]] const pthread_attr_t* get() const noexcept { return &attributes_; }

private:
    pthread_attr_t attributes_{};
    bool isInitialized_ = false;
    bool isReady_ = false;
};

} // namespace

std::int32_t startThread(std::string_view name, ThreadForm form, std::function<void()> body, pthread_t* started)
{
    constexpr std::size_t longestName = 15;
    if (isForkedCopy()) // what it would work on may be locked for ever
        return EAGAIN;
    auto beginning = std::make_unique<Beginning>(Beginning{std::string(name.substr(0, longestName)), std::move(body)});
    const Attributes attributes(form);
    if (!attributes.isReady())
        return -1;

    // A thread inherits the mask of the one that makes it, so no signal can slip in before it runs.
    sigset_t all;
    sigset_t before;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, &before);
    pthread_t thread{};
    const int status = pthread_create(&thread, attributes.get(), &enterThread, beginning.get());
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
    if (status != 0)
        return status;
    static_cast<void>(beginning.release()); // the thread's now
    if (started)
        *started = thread;
    return 0;
}

bool isLibraryThread() noexcept
{
    return gIsLibraryThread;
}

} // namespace dmf::internal
