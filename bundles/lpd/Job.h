#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace dmf::lpd {

/// What a job tells the server of itself (RFC 1179, 7.2). Names are cut and cleaned to what the protocol can carry.
struct JobTicket {
    std::string queue;
    std::string host; ///< this machine's
    std::string user;
    std::string title;
    unsigned number = 1; ///< 0 to 999; with the host it names the job
};

/// The sending side of one job (RFC 1179, 6): says what is to be sent next and takes the server's answers. Knows
/// nothing of sockets. Reentrant.
///
///     announcing ──► announced ──describe──► describing ──► receiving ──end──► ending ──► taken
///
/// In the states that end in "-ing" something is to be sent or to be answered; the others wait for the caller. A
/// refusal leads to `refused` from everywhere, and there it stays.
class Job {
public:
    enum class State : std::uint8_t { announcing, announced, describing, receiving, ending, taken, refused };

    explicit Job(JobTicket ticket);

    [[nodiscard]] State state() const noexcept { return state_; }
    /// What is to be sent now; empty while an answer is awaited, or the caller has to go on.
    [[nodiscard]] std::string_view outgoing() const noexcept;
    void sent(std::size_t count);
    [[nodiscard]] bool awaitsAnswer() const noexcept;
    /// Takes one byte of the server: 0 is an acknowledgement, any other a refusal; one that was not asked for is one,
    /// too.
    void answered(std::uint8_t byte);
    /// The byte with which the server refused, if it did.
    [[nodiscard]] std::optional<std::uint8_t> refusal() const noexcept { return refusal_; }

    /// In `announced`: sends the control file and the announcement of a document of so many bytes.
    void describe(std::uint64_t documentLength);
    /// In `receiving`: the caller has sent all bytes of the document.
    void end();

private:
    enum class Step : std::uint8_t { queue, controlHead, control, dataHead, dataEnd };
    void send(Step step, std::string text);

    const JobTicket ticket_;
    State state_ = State::announcing;
    Step step_ = Step::queue;
    std::string text_;
    std::size_t sent_ = 0;
    std::uint64_t documentLength_ = 0;
    std::optional<std::uint8_t> refusal_;
};

/// The question for a queue's state in short form (RFC 1179, 5.3). The answer is text, up to the end of the connection.
[[nodiscard]] std::string shortStateQuestion(std::string_view queue);

} // namespace dmf::lpd
