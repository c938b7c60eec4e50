#include "LpdDevice.h"

#include <poll.h>
#include <sys/socket.h>

#include <algorithm>
#include <chrono>
#include <optional>
#include <utility>

#include <dmf/DMKeys.h>
#include <dmf/platform/Url.h>

#include "Job.h"

namespace dmf::lpd {

using socket::Clock;
using socket::Outcome;

namespace {

constexpr std::uint16_t kPort = 515;
constexpr std::chrono::seconds kSearchLimit{5};
constexpr std::chrono::seconds kStateLimit{2};
constexpr std::size_t kLongestState = 16 * 1024;

Dictionary parametersOf(const Dictionary& spec)
{
    const auto* const params = spec[kParamsProp].asDictionary();
    return params ? *params : Dictionary();
}

std::optional<socket::Endpoint> endpointFrom(const Dictionary& spec)
{
    Dictionary params = parametersOf(spec);
    if (!params.contains(kIPPortParam))
        params.set(kIPPortParam, Value(std::to_string(kPort)));
    return socket::Endpoint::fromParameters(params);
}

/// Asks and reads to the end of the connection, the deadline, or as much as a state may be long.
std::string stateOf(int socket, const std::string& queue, Clock::time_point deadline,
                    const socket::CancelQuestion& isCancelled)
{
    const auto question = shortStateQuestion(queue);
    if (::send(socket, question.data(), question.size(), MSG_DONTWAIT | MSG_NOSIGNAL) !=
        static_cast<ssize_t>(question.size()))
        return {};
    std::string answer;
    while (answer.size() < kLongestState && !isCancelled()) {
        char buffer[4096];
        const auto got = ::recv(socket, buffer, std::min(sizeof buffer, kLongestState - answer.size()), MSG_DONTWAIT);
        if (got > 0) {
            answer.append(buffer, static_cast<std::size_t>(got));
            continue;
        }
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now());
        if (got == 0 || (errno != EAGAIN && errno != EWOULDBLOCK && errno != EINTR) || left.count() <= 0)
            break;
        pollfd watched{socket, POLLIN, 0};
        (void)::poll(&watched, 1, static_cast<int>(std::min(left, socket::kCancelInterval).count()));
    }
    return answer;
}

/// A state that people can read: lines of UTF-8 without other control characters; nothing of what is no text.
std::string asText(std::string answer)
{
    while (!answer.empty() && (answer.back() == '\n' || answer.back() == '\0' || answer.back() == ' '))
        answer.pop_back();
    const bool isText = std::all_of(answer.begin(), answer.end(), [](char letter) {
        const auto byte = static_cast<unsigned char>(letter);
        return (byte >= 0x20 && byte < 0x7F) || letter == '\n' || letter == '\t' || letter == '\r';
    });
    return isText ? answer : std::string();
}

} // namespace

std::string queueFrom(const Dictionary& spec)
{
    if (auto queue = parametersOf(spec).string(kQueueParam); queue && !queue->empty())
        return *std::move(queue);
    const auto url = Url::fromString(spec.string(kURIProp).value_or(""));
    const std::string path = url ? url->path() : std::string();
    const auto begin = path.find_first_not_of('/');
    if (begin == std::string::npos)
        return "lp";
    return path.substr(begin, path.find('/', begin) - begin);
}

std::shared_ptr<IDMDevice> LpdDevice::initFromInfo(const Dictionary& spec,
                                                   const std::shared_ptr<IDMDeviceHandler>& handler)
{
    auto endpoint = endpointFrom(spec);
    if (!endpoint)
        return nullptr;
    const auto isCancelled = [&] { return handler && handler->isCanceledForDevice(nullptr); };
    const auto connected = socket::connectTo(*endpoint, Clock::now() + kSearchLimit, isCancelled);
    if (connected.outcome != Outcome::done)
        return nullptr;
    return std::make_shared<LpdDevice>(*std::move(endpoint), spec, connected.address, queueFrom(spec));
}

LpdDevice::LpdDevice(socket::Endpoint endpoint, const Dictionary& spec, std::string address, std::string queue)
    : NetworkDevice(std::move(endpoint), spec, std::move(address)), queue_(std::move(queue))
{
}

Dictionary LpdDevice::retrieveParameters(const Dictionary& parameters, std::shared_ptr<IDMDeviceHandler> handler)
{
    const auto isCancelled = [&] { return handler && handler->isCanceledForDevice(this); };
    auto result = NetworkDevice::retrieveParameters(parameters, handler);
    if (!parameters.empty() && !parameters.contains(kQueueStateParam))
        return result;
    const auto deadline = Clock::now() + kStateLimit;
    const auto connected = connect(deadline, isCancelled);
    if (connected.outcome != Outcome::done)
        return result;
    const auto state = asText(stateOf(connected.socket.get(), queue_, deadline, isCancelled));
    if (state.empty())
        return result;
    auto params = parametersOf(result);
    params.set(kQueueStateParam, Value(state));
    result.set(kParamsProp, std::move(params));
    return result;
}

} // namespace dmf::lpd
