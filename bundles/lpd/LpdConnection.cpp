#include "LpdConnection.h"

#include <poll.h>
#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <utility>

#include <dmf/ADMWorkerThread.h>
#include <dmf/DMLog.h>

namespace dmf::lpd {

namespace {

constexpr std::chrono::milliseconds kFarewell{900};
constexpr std::chrono::minutes kAfterworkLimit{5};

bool isBlocked()
{
    return errno == EAGAIN || errno == EWOULDBLOCK || errno == EINTR;
}

timespec timeUntil(TransportConnection::Clock::time_point then)
{
    const auto left = std::max(then - TransportConnection::Clock::now(), TransportConnection::Clock::duration());
    const auto count = std::chrono::duration_cast<std::chrono::nanoseconds>(left).count();
    return {static_cast<time_t>(count / 1'000'000'000), static_cast<long>(count % 1'000'000'000)};
}

} // namespace

/// Goes on sending a job whose channel was closed. Owns all that it needs.
class LpdConnection::Afterwork final : public ADMWorkerThread {
public:
    explicit Afterwork(std::shared_ptr<LpdConnection> work) : work_(std::move(work)) { setRunDetached(); }

protected:
    std::uintptr_t run() override
    {
        const auto deadline = Clock::now() + kAfterworkLimit;
        while (work_->drive() == Stage::sending && Clock::now() < deadline)
            work_->waitForServer(deadline);
        work_ = nullptr;
        return 0;
    }
    [[nodiscard]] const char* threadName() const noexcept override { return "dmf-lpd"; }

private:
    std::shared_ptr<LpdConnection> work_;
};

std::shared_ptr<LpdConnection> LpdConnection::over(socket::FileDescriptor socket, JobTicket ticket,
                                                   std::shared_ptr<void> use)
{
    auto made = std::make_shared<LpdConnection>(std::move(socket), std::move(ticket), std::move(use));
    return made->endSignal_ && made->wakeSignal_ && made->doneSignal_ ? made : nullptr;
}

LpdConnection::LpdConnection(socket::FileDescriptor socket, JobTicket ticket, std::shared_ptr<void> use)
    : socket_(std::move(socket)), use_(std::move(use)), job_(std::move(ticket))
{
}

LpdConnection::~LpdConnection() = default;

TransportConnection::Status LpdConnection::announce(std::optional<std::uint64_t> documentLength,
                                                    Clock::time_point deadline,
                                                    const socket::CancelQuestion& isCancelled)
{
    const auto wanted = documentLength ? Job::State::receiving : Job::State::announced;
    for (;;) {
        {
            std::lock_guard guard(lock_);
            if (!sendOutgoing() || !takeAnswers())
                return ProviderStatus::failed;
            if (job_.state() == Job::State::announced && documentLength) {
                job_.describe(*documentLength);
                documentLength_ = *documentLength;
                continue;
            }
            if (job_.state() == wanted) {
                stage_ = documentLength ? Stage::streaming : Stage::spooling;
                return ProviderStatus::success;
            }
        }
        if (isCancelled())
            return ProviderStatus::cancelled;
        const auto now = Clock::now();
        if (now >= deadline)
            return ProviderStatus::timedOut;
        waitForServer(std::min(deadline, now + socket::kCancelInterval));
    }
}

TransportConnection::Progress LpdConnection::read(std::span<std::uint8_t>)
{
    std::lock_guard guard(lock_);
    if (stage_ == Stage::failed)
        return {0, ProviderStatus::failed};
    return {0, stage_ == Stage::finished ? ProviderStatus::peerEnded : ProviderStatus::success};
}

TransportConnection::Progress LpdConnection::write(std::span<const std::uint8_t> bytes)
{
    std::lock_guard guard(lock_);
    if (stage_ == Stage::spooling) {
        if (takeAnswers() && spool_.append(bytes)) // the server has nothing to say now, unless it hangs up
            return {static_cast<std::uint32_t>(bytes.size()), ProviderStatus::success};
        fail();
        return {0, ProviderStatus::failed};
    }
    if (stage_ != Stage::streaming || !takeAnswers())
        return {0, ProviderStatus::failed};
    // More than was announced would be taken for the next command.
    const auto left = documentLength_ - sentOfDocument_;
    if (left == 0)
        return {0, ProviderStatus::invalidParameter};
    const auto part = bytes.first(static_cast<std::size_t>(std::min<std::uint64_t>(left, bytes.size())));
    const auto sent = ::send(socket_.get(), part.data(), part.size(), MSG_DONTWAIT | MSG_NOSIGNAL);
    if (sent < 0 && isBlocked())
        return {};
    if (sent < 0) {
        fail();
        return {0, ProviderStatus::failed};
    }
    sentOfDocument_ += static_cast<std::uint64_t>(sent);
    return {static_cast<std::uint32_t>(sent), ProviderStatus::success};
}

std::optional<TransportConnection::Status> LpdConnection::finishWriting()
{
    switch (drive()) {
    case Stage::finished: return ProviderStatus::success;
    case Stage::failed: return ProviderStatus::failed;
    case Stage::spooling:
    case Stage::streaming:
    case Stage::sending: break;
    }
    return std::nullopt;
}

/// The document has ended: brings the job as far as it goes without waiting.
LpdConnection::Stage LpdConnection::drive()
{
    std::lock_guard guard(lock_);
    if (stage_ == Stage::spooling) {
        documentLength_ = spool_.size();
        job_.describe(documentLength_);
        stage_ = Stage::sending;
    } else if (stage_ == Stage::streaming) {
        if (sentOfDocument_ != documentLength_) {
            DMFLog("errors", "LPD: the document ends before its announced length");
            fail();
            return stage_;
        }
        stage_ = Stage::sending;
    }
    while (stage_ == Stage::sending) {
        const auto before = std::pair(job_.state(), sentOfDocument_);
        if (!sendOutgoing() || !takeAnswers() || !sendSpooled()) {
            fail();
            break;
        }
        if (job_.state() == Job::State::receiving && sentOfDocument_ == documentLength_)
            job_.end();
        if (job_.state() == Job::State::taken) {
            stage_ = Stage::finished;
            doneSignal_.set();
        } else if (before == std::pair(job_.state(), sentOfDocument_)) {
            break; // it is the server's turn
        }
    }
    return stage_;
}

bool LpdConnection::sendOutgoing()
{
    while (!job_.outgoing().empty()) {
        const auto text = job_.outgoing();
        const auto sent = ::send(socket_.get(), text.data(), text.size(), MSG_DONTWAIT | MSG_NOSIGNAL);
        if (sent < 0)
            return isBlocked();
        job_.sent(static_cast<std::size_t>(sent));
    }
    return true;
}

bool LpdConnection::sendSpooled()
{
    std::array<std::uint8_t, 64 * 1024> block;
    while (job_.state() == Job::State::receiving && sentOfDocument_ < documentLength_) {
        const auto got = spool_.read(sentOfDocument_, block);
        if (got <= 0)
            return false;
        const auto sent =
            ::send(socket_.get(), block.data(), static_cast<std::size_t>(got), MSG_DONTWAIT | MSG_NOSIGNAL);
        if (sent < 0)
            return isBlocked();
        sentOfDocument_ += static_cast<std::uint64_t>(sent);
    }
    return true;
}

/// Takes what the server has said. False when it refuses, says what nobody asked for, or has gone.
bool LpdConnection::takeAnswers()
{
    while (job_.state() != Job::State::taken) { // whatever comes then is no affair of the job
        std::uint8_t byte = 0;
        const auto got = ::recv(socket_.get(), &byte, 1, MSG_DONTWAIT);
        if (got < 0 && isBlocked())
            return true;
        if (got <= 0)
            return false;
        job_.answered(byte);
        if (const auto refusal = job_.refusal()) {
            DMFLog("errors", "LPD: the server refuses the job (%d)", static_cast<int>(*refusal));
            return false;
        }
        if (!sendOutgoing())
            return false;
    }
    return true;
}

void LpdConnection::fail()
{
    stage_ = Stage::failed;
    doneSignal_.set();
}

bool LpdConnection::hasSomethingToSend() const
{
    return !job_.outgoing().empty() || job_.state() == Job::State::receiving;
}

/// Until the server can take or has said something.
void LpdConnection::waitForServer(Clock::time_point until) noexcept
{
    short events = POLLIN;
    {
        std::lock_guard guard(lock_);
        if (hasSomethingToSend())
            events |= POLLOUT;
    }
    pollfd watched{socket_.get(), events, 0};
    const auto limit = timeUntil(until);
    (void)::ppoll(&watched, 1, &limit, nullptr);
}

void LpdConnection::wait(const Wait& wait)
{
    std::array<pollfd, 4> watched{{{-1, 0, 0}, {endSignal_.descriptor(), POLLIN, 0}, {-1, POLLIN, 0}, {-1, POLLIN, 0}}};
    if (wait.writing) {
        std::lock_guard guard(lock_);
        if (stage_ == Stage::spooling)
            return; // there is always room
        watched[0] = {socket_.get(), static_cast<short>(hasSomethingToSend() ? POLLIN | POLLOUT : POLLIN), 0};
    }
    if (wait.reading)
        watched[2].fd = doneSignal_.descriptor();
    if (wait.waking)
        watched[3].fd = wakeSignal_.descriptor();
    const auto limit = wait.until ? timeUntil(*wait.until) : timespec{};
    (void)::ppoll(watched.data(), watched.size(), wait.until ? &limit : nullptr, nullptr);
    if (watched[3].revents != 0)
        wakeSignal_.clear();
}

void LpdConnection::wake() noexcept
{
    wakeSignal_.set();
}

void LpdConnection::disconnect() noexcept
{
    endSignal_.set();
    {
        std::lock_guard guard(lock_);
        const bool hasDocument = stage_ == Stage::sending || spool_.size() > 0 ||
                                 (stage_ == Stage::streaming && sentOfDocument_ == documentLength_);
        if (!documentIsWhole() || !hasDocument || stage_ == Stage::finished || stage_ == Stage::failed) {
            // Closing before the last byte of the document tells the server that there is no job.
            ::shutdown(socket_.get(), SHUT_RDWR);
            return;
        }
    }
    const auto until = Clock::now() + kFarewell;
    while (drive() == Stage::sending && Clock::now() < until)
        waitForServer(until);
    if (drive() != Stage::sending)
        return;
    const auto afterwork = std::make_shared<Afterwork>(shared_from_this());
    if (afterwork->start() != 0)
        DMFLog("errors", "LPD: the job cannot be sent to its end: no thread can be started");
}

} // namespace dmf::lpd
