#include "Job.h"

#include <cstdio>
#include <utility>

namespace dmf::lpd {

namespace {

constexpr std::size_t kLongestHost = 31; // RFC 1179, 7.2
constexpr std::size_t kLongestTitle = 99;

/// A name as it can stand on a line of a command or a control file: what ends lines and words would end it, too.
std::string cleaned(std::string_view name, std::size_t limit, std::string_view otherwise)
{
    std::string result;
    for (const char letter : name.substr(0, limit)) {
        const auto byte = static_cast<unsigned char>(letter);
        result += byte < 0x20 || byte == 0x7F ? '_' : letter;
    }
    return result.empty() ? std::string(otherwise) : result;
}

std::string withoutBlanks(std::string text)
{
    for (char& letter : text) {
        if (letter == ' ' || letter == '/')
            letter = '_';
    }
    return text;
}

std::string fileName(std::string_view kind, const JobTicket& ticket)
{
    char number[4];
    std::snprintf(number, sizeof number, "%03u", ticket.number % 1000U);
    return std::string(kind) + "fA" + number + ticket.host;
}

JobTicket cleaned(JobTicket ticket)
{
    ticket.queue = withoutBlanks(cleaned(ticket.queue, 255, "lp"));
    ticket.host = withoutBlanks(cleaned(ticket.host, kLongestHost, "localhost"));
    ticket.user = withoutBlanks(cleaned(ticket.user, kLongestHost, "anonymous"));
    ticket.title = cleaned(ticket.title, kLongestTitle, "document");
    return ticket;
}

std::string controlFile(const JobTicket& ticket)
{
    const auto data = fileName("d", ticket);
    // "l": the document is the printer's own language, and nothing in it is taken for a control character.
    return "H" + ticket.host + "\nP" + ticket.user + "\nJ" + ticket.title + "\nl" + data + "\nU" + data + "\nN" +
           ticket.title + "\n";
}

} // namespace

Job::Job(JobTicket ticket) : ticket_(cleaned(std::move(ticket)))
{
    send(Step::queue, "\002" + ticket_.queue + "\n");
}

void Job::send(Step step, std::string text)
{
    step_ = step;
    text_ = std::move(text);
    sent_ = 0;
}

std::string_view Job::outgoing() const noexcept
{
    return std::string_view(text_).substr(sent_);
}

void Job::sent(std::size_t count)
{
    sent_ += count;
}

bool Job::awaitsAnswer() const noexcept
{
    const bool isSending = state_ == State::announcing || state_ == State::describing || state_ == State::ending;
    return isSending && sent_ == text_.size();
}

void Job::answered(std::uint8_t byte)
{
    if (state_ == State::refused)
        return;
    if (byte != 0 || !awaitsAnswer()) {
        state_ = State::refused;
        refusal_ = byte;
        send(step_, {});
        return;
    }
    switch (step_) {
    case Step::queue: state_ = State::announced; return send(step_, {});
    case Step::controlHead: return send(Step::control, controlFile(ticket_) + '\0');
    case Step::control:
        return send(Step::dataHead, "\003" + std::to_string(documentLength_) + ' ' + fileName("d", ticket_) + '\n');
    case Step::dataHead: state_ = State::receiving; return send(step_, {});
    case Step::dataEnd: state_ = State::taken; return send(step_, {});
    }
}

void Job::describe(std::uint64_t documentLength)
{
    if (state_ != State::announced)
        return;
    state_ = State::describing;
    documentLength_ = documentLength;
    send(Step::controlHead, "\002" + std::to_string(controlFile(ticket_).size()) + ' ' + fileName("c", ticket_) + '\n');
}

void Job::end()
{
    if (state_ != State::receiving)
        return;
    state_ = State::ending;
    send(Step::dataEnd, std::string(1, '\0'));
}

std::string shortStateQuestion(std::string_view queue)
{
    return "\003" + withoutBlanks(cleaned(queue, 255, "lp")) + '\n';
}

} // namespace dmf::lpd
