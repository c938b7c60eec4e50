#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>

#include <dmf/TransportConnection.h>

#include "Job.h"
#include "Spool.h"
#include "transport/Connect.h"
#include "transport/Connection.h"

namespace dmf::lpd {

/// One job on its way to a queue. What is written is the document; `finishWriting` ends it and waits until the server
/// has taken the job. There is nothing to read: a read waits for the end of the job and gives `peerEnded`.
///
/// RFC 1179 wants a document's length in front of it. Where it is known the document goes to the server as it is
/// written; otherwise it is kept in a file without a name until its end.
///
///     spooling ─┐                      (length not known)
///               ├─finishWriting─► sending ──the server has it──► finished
///     streaming ┘                         └──refused, lost──► failed
///
/// A connection that ends before its document has ended sends what it has, when nothing says that the document is not
/// whole: within a second, and if that is not enough on a thread of its own, for five minutes at most.
class LpdConnection final : public TransportConnection, public std::enable_shared_from_this<LpdConnection> {
public:
    /// `socket` is connected. Empty when the program is short of descriptors.
    [[nodiscard]] static std::shared_ptr<LpdConnection> over(socket::FileDescriptor socket, JobTicket ticket,
                                                             std::shared_ptr<void> use);
    LpdConnection(socket::FileDescriptor socket, JobTicket ticket, std::shared_ptr<void> use);
    ~LpdConnection() override;

    /// Announces the job, and with a known length describes it: afterwards the document may be written. Waits until
    /// the deadline; `cancelled` as soon as `isCancelled` says so.
    [[nodiscard]] Status announce(std::optional<std::uint64_t> documentLength, Clock::time_point deadline,
                                  const socket::CancelQuestion& isCancelled);

    [[nodiscard]] Progress read(std::span<std::uint8_t> space) override;
    [[nodiscard]] Progress write(std::span<const std::uint8_t> bytes) override;
    [[nodiscard]] std::optional<Status> finishWriting() override;
    void wait(const Wait& wait) override;
    void wake() noexcept override;

protected:
    void disconnect() noexcept override;

private:
    class Afterwork;
    enum class Stage : std::uint8_t { spooling, streaming, sending, finished, failed };

    [[nodiscard]] Stage drive();
    [[nodiscard]] bool sendOutgoing();
    [[nodiscard]] bool sendSpooled();
    [[nodiscard]] bool takeAnswers();
    void fail();
    void waitForServer(Clock::time_point until) noexcept;
    [[nodiscard]] bool hasSomethingToSend() const;

    const socket::FileDescriptor socket_;
    const std::shared_ptr<void> use_;
    socket::Signal endSignal_;
    socket::Signal wakeSignal_;
    socket::Signal doneSignal_; // set for good once the job has come to its end

    mutable std::mutex lock_;
    Job job_; // this and the following guarded by lock_
    Stage stage_ = Stage::spooling;
    Spool spool_;
    std::uint64_t sentOfDocument_ = 0;
    std::uint64_t documentLength_ = 0; // once it is known
};

} // namespace dmf::lpd
