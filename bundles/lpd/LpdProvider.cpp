#include "LpdProvider.h"

#include <pwd.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <charconv>
#include <chrono>
#include <optional>
#include <string>
#include <vector>

#include <dmf/ADMServiceInfo.h>

#include "LpdConnection.h"
#include "LpdDevice.h"

namespace dmf::lpd {

namespace {

constexpr std::uint32_t kPacketSize = 64 * 1024;
constexpr std::chrono::seconds kOpenLimit{15};
constexpr std::string_view kDocumentLengthParam = "DocumentLength";

std::string hostName()
{
    std::array<char, 256> name{};
    return ::gethostname(name.data(), name.size() - 1) == 0 ? std::string(name.data()) : std::string();
}

std::string userName()
{
    std::vector<char> space(16 * 1024);
    passwd entry{};
    passwd* found = nullptr;
    if (::getpwuid_r(::geteuid(), &entry, space.data(), space.size(), &found) == 0 && found)
        return found->pw_name;
    return std::to_string(::geteuid());
}

/// Different for the jobs of one process and, mostly, of two.
unsigned nextNumber()
{
    static std::atomic<unsigned> last{static_cast<unsigned>(::getpid())};
    return ++last % 1000U;
}

std::optional<std::uint64_t> documentLength(ADMDuplexDataChannelBase& channel)
{
    const auto given = channel.serviceInfo()->connectionParams()[kDocumentLengthParam];
    if (const auto* const number = given.asNumber())
        return number->uint64Value();
    const auto* const text = given.asString();
    std::uint64_t length = 0;
    if (!text || std::from_chars(text->data(), text->data() + text->size(), length).ptr != text->data() + text->size())
        return std::nullopt;
    return text->empty() ? std::nullopt : std::optional(length);
}

} // namespace

ADMConnectionProvider::Status LpdProvider::connect(std::shared_ptr<TransportConnection>& connection)
{
    const auto server = std::dynamic_pointer_cast<LpdDevice>(device());
    const auto channel = parent();
    if (!server || !channel)
        return ProviderStatus::invalidParameter;
    const auto deadline = Clock::now() + kOpenLimit;
    const auto isCancelled = [this] { return isGivenUp(); };
    auto connected = server->connect(deadline, isCancelled);
    switch (connected.outcome) {
    case socket::Outcome::refused: return ProviderStatus::failed;
    case socket::Outcome::timedOut: return ProviderStatus::timedOut;
    case socket::Outcome::cancelled: return ProviderStatus::cancelled;
    case socket::Outcome::done: break;
    }
    const auto made = LpdConnection::over(std::move(connected.socket),
                                          {server->queue(), hostName(), userName(), channel->name(), nextNumber()},
                                          server->beginUse());
    if (!made)
        return ProviderStatus::failed;
    const auto status = made->announce(documentLength(*channel), deadline, isCancelled);
    if (status != ProviderStatus::success)
        return status;
    connection = made;
    setMaxPacketSizes(kPacketSize, kPacketSize);
    return ProviderStatus::success;
}

std::int16_t LpdChannel::createAndOpenProviderWithTimeout(double)
{
    const auto made =
        ADMConnectionProvider::initWithParent<LpdProvider>(shared_from_this(), nullptr, serviceInfo()->device());
    if (!made)
        return ProviderStatus::invalidParameter; // the device has gone meanwhile
    setProvider(made);
    return made->open();
}

} // namespace dmf::lpd
