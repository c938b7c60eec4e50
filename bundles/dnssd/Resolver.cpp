#include "Resolver.h"

#include <algorithm>
#include <chrono>
#include <optional>

#include "DaemonLink.h"
#include "Means.h"
#include "Messages.h"

namespace dmf::dnssd {

using socket::Clock;
using socket::Outcome;

namespace {
/// Once one address is known, so long the others may still take.
constexpr std::chrono::milliseconds kFurtherAddresses{100};
/// How long the daemon may take to let go of the connection; it takes a millisecond.
constexpr std::chrono::seconds kFarewell{1};

/// A main context of the calling thread's own, by which asynchronous calls arrive while it lives.
class OwnContext {
public:
    OwnContext() : context_(g_main_context_new()) { g_main_context_push_thread_default(context_.get()); }
    ~OwnContext() { g_main_context_pop_thread_default(context_.get()); }
    OwnContext(const OwnContext&) = delete;
    OwnContext& operator=(const OwnContext&) = delete;

    /// Serves what comes, for one event or until the time.
    void turn(Clock::time_point until)
    {
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(until - Clock::now()).count();
        const auto wait = static_cast<guint>(std::clamp<decltype(left)>(left, 0, 1000));
        GSource* const timer = g_timeout_source_new(wait);
        g_source_set_callback(
            timer, [](gpointer) -> gboolean { return G_SOURCE_REMOVE; }, nullptr, nullptr);
        g_source_attach(timer, context_.get());
        g_main_context_iteration(context_.get(), TRUE);
        g_source_destroy(timer);
        g_source_unref(timer);
    }
    /// Something whose end wakes `turn`.
    [[nodiscard]] std::shared_ptr<void> life() const
    {
        return {g_main_context_ref(context_.get()), [](void* context) {
                    g_main_context_wakeup(static_cast<GMainContext*>(context));
                    g_main_context_unref(static_cast<GMainContext*>(context));
                }};
    }

private:
    const Owned<GMainContext> context_;
};

/// One search. Everything happens on the thread that waits for it.
class Search {
public:
    Search(const ServiceName& service, Resolved& resolved) : service_(service), resolved_(resolved) {}
    ~Search() { end(); }
    Search(const Search&) = delete;
    Search& operator=(const Search&) = delete;

    void begin(std::shared_ptr<void> life)
    {
        DaemonLink::Events events;
        events.daemonCame = [this] { askForService(); };
        events.daemonWent = [this] { isRefused_ = true; };
        events.busWent = [this](const std::string&) { isRefused_ = true; };
        link_ = std::make_shared<DaemonLink>(std::move(events), std::move(life));
        link_->open();
    }
    void end()
    {
        if (link_)
            link_->close();
        link_ = nullptr;
    }

    [[nodiscard]] bool isRefused() const noexcept { return isRefused_; }
    [[nodiscard]] bool isDone(Clock::time_point now) const noexcept
    {
        return !resolved_.endpoint.addresses.empty() && (kindsExhausted_ == 2 || now >= enough_);
    }
    /// When `isDone` is to be looked at again though nothing has come.
    [[nodiscard]] Clock::time_point enough() const noexcept { return enough_; }

private:
    void askForService()
    {
        link_->call("ResolveService", resolveArguments(service_, kAnyInterface, kAnyProtocol),
                    [this](GVariant* reply, const GError* error) {
                        if (const auto found = resolvedIn(reply))
                            askForAddresses(*found);
                        else if (isTimeOut(error))
                            askForService(); // the daemon searches for five seconds; the deadline may be later
                        else
                            isRefused_ = true;
                    });
    }
    void askForAddresses(const ResolvedService& found)
    {
        resolved_.txt = TxtRecord(found.txt);
        resolved_.endpoint.port = found.port;
        if (found.port == 0 || found.hostName.empty()) { // "not offered here"
            isRefused_ = true;
            return;
        }
        for (const bool isIPv6 : {false, true})
            link_->browse(
                "RecordBrowserNew", addressArguments(found.hostName, isIPv6),
                [this](std::string_view signal, GVariant* arguments) { receive(signal, arguments); },
                [this](const GError* error) { isRefused_ = isRefused_ || error != nullptr; });
    }
    void receive(std::string_view signal, GVariant* arguments)
    {
        // "CacheExhausted": what the daemon knew has been told; devices send their addresses along with the service.
        if (signal == "CacheExhausted")
            ++kindsExhausted_;
        const auto item = signal == "ItemNew" ? addressIn(arguments) : std::nullopt;
        auto& addresses = resolved_.endpoint.addresses;
        if (!item || std::find(addresses.begin(), addresses.end(), item->address) != addresses.end())
            return;
        if (addresses.empty())
            enough_ = Clock::now() + kFurtherAddresses;
        addresses.push_back(item->address);
    }

    const ServiceName& service_;
    Resolved& resolved_;
    std::shared_ptr<DaemonLink> link_;
    bool isRefused_ = false;
    int kindsExhausted_ = 0;
    Clock::time_point enough_ = Clock::time_point::max();
};

Outcome wait(OwnContext& context, const Search& search, Clock::time_point deadline,
             const socket::CancelQuestion& isCancelled)
{
    auto askAgain = Clock::now() + socket::kCancelInterval;
    while (true) {
        const auto now = Clock::now();
        if (search.isDone(now))
            return Outcome::done;
        if (search.isRefused())
            return Outcome::refused;
        if (now >= deadline)
            return Outcome::timedOut;
        if (now >= askAgain) {
            if (isCancelled && isCancelled())
                return Outcome::cancelled;
            askAgain = now + socket::kCancelInterval;
        }
        context.turn(std::min({deadline, askAgain, search.enough()}));
    }
}
} // namespace

Outcome resolve(const ServiceName& service, Clock::time_point deadline, const socket::CancelQuestion& isCancelled,
                Resolved& resolved)
{
    resolved = {};
    if (!canOpenDescriptors())
        return Outcome::refused;
    OwnContext context;
    std::weak_ptr<void> life;
    Search search(service, resolved);
    {
        auto held = context.life();
        life = held;
        search.begin(std::move(held));
    }
    const auto outcome = wait(context, search, deadline, isCancelled);
    search.end();
    const auto farewell = Clock::now() + kFarewell;
    while (!life.expired() && Clock::now() < farewell)
        context.turn(farewell);
    return outcome;
}

} // namespace dmf::dnssd
