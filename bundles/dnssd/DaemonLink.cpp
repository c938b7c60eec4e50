#include "DaemonLink.h"

#include <pthread.h>
#include <signal.h>

#include <exception>
#include <utility>

#include <dmf/DMLog.h>

#include "Means.h"

namespace dmf::dnssd {

namespace {
constexpr const char* kDaemon = "org.freedesktop.Avahi";
constexpr const char* kServerInterface = "org.freedesktop.Avahi.Server";
constexpr int kCallLimit = 10'000; // milliseconds; the daemon itself ends its searches after five seconds

/// GLib starts threads of its own as a connection is made; they inherit that no signal of the host goes to them.
class BlockedSignals {
public:
    BlockedSignals()
    {
        sigset_t all;
        sigfillset(&all);
        ::pthread_sigmask(SIG_SETMASK, &all, &before_);
    }
    ~BlockedSignals() { ::pthread_sigmask(SIG_SETMASK, &before_, nullptr); }
    BlockedSignals(const BlockedSignals&) = delete;
    BlockedSignals& operator=(const BlockedSignals&) = delete;

private:
    sigset_t before_;
};

/// What is thrown must not pass through GLib's frames.
template <class Work>
void guarded(Work work)
{
    try {
        work();
    } catch (const std::exception& error) {
        DMFLog("errors", "Discovery: exception '%@' while a message of the DNS-SD daemon was handled", error);
    } catch (...) {
        DMFLog("errors", "Discovery: unknown exception while a message of the DNS-SD daemon was handled");
    }
}

struct LifeClosure {
    std::weak_ptr<DaemonLink> link;
    std::shared_ptr<void> life;
};

void closed(GObject* source, GAsyncResult* result, gpointer data)
{
    g_dbus_connection_close_finish(G_DBUS_CONNECTION(source), result, nullptr);
    delete static_cast<std::shared_ptr<void>*>(data);
}
} // namespace

struct DaemonLink::Closure {
    std::shared_ptr<DaemonLink> link;
    static void free(gpointer data) { delete static_cast<Closure*>(data); }
};

struct DaemonLink::CallClosure {
    std::shared_ptr<DaemonLink> link;
    std::string owner;
    Reply reply;
};

DaemonLink::DaemonLink(Events events, std::shared_ptr<void> life)
    : events_(std::move(events)), life_(std::move(life)), cancellable_(g_cancellable_new())
{
}

void DaemonLink::open()
{
    const auto self = shared_from_this(); // who is told of a failure lets go of the link
    if (!canOpenDescriptors())
        return busIsGone("too few descriptors are left");
    GError* error = nullptr;
    const Owned<char> address(g_dbus_address_get_for_bus_sync(G_BUS_TYPE_SYSTEM, nullptr, &error));
    const Owned<GError> problem(error);
    if (!address)
        return busIsGone(problem ? problem->message : "its address is unknown");
    const BlockedSignals guard;
    g_dbus_connection_new_for_address(address.get(),
                                      static_cast<GDBusConnectionFlags>(G_DBUS_CONNECTION_FLAGS_AUTHENTICATION_CLIENT |
                                                                        G_DBUS_CONNECTION_FLAGS_MESSAGE_BUS_CONNECTION),
                                      nullptr, cancellable_.get(), &DaemonLink::onConnected,
                                      new Closure{shared_from_this()});
}

void DaemonLink::onConnected(GObject*, GAsyncResult* result, gpointer data)
{
    const std::unique_ptr<Closure> closure(static_cast<Closure*>(data));
    GError* error = nullptr;
    Owned<GDBusConnection> connection(g_dbus_connection_new_for_address_finish(result, &error));
    const Owned<GError> problem(error);
    guarded([&] { closure->link->connected(std::move(connection), problem.get()); });
}

void DaemonLink::connected(Owned<GDBusConnection> connection, const GError* error)
{
    if (isClosed_) {
        if (connection)
            g_dbus_connection_close(connection.get(), nullptr, &closed, new std::shared_ptr<void>(life_));
        return;
    }
    if (!connection)
        return busIsGone(error->message);
    connection_ = std::move(connection);
    // Kept until the connection itself goes: its last callbacks have been served then.
    g_signal_connect_data(
        connection_.get(), "closed", G_CALLBACK(&DaemonLink::onClosed), new LifeClosure{weak_from_this(), life_},
        [](gpointer data, GClosure*) { delete static_cast<LifeClosure*>(data); }, GConnectFlags());
    watch_ =
        g_bus_watch_name_on_connection(connection_.get(), kDaemon, G_BUS_NAME_WATCHER_FLAGS_NONE, &DaemonLink::onCame,
                                       &DaemonLink::onWent, new Closure{shared_from_this()}, &Closure::free);
}

void DaemonLink::close()
{
    if (std::exchange(isClosed_, true))
        return;
    g_cancellable_cancel(cancellable_.get());
    forgetDaemon();
    if (watch_ != 0)
        g_bus_unwatch_name(std::exchange(watch_, 0));
    if (connection_ && !g_dbus_connection_is_closed(connection_.get()))
        g_dbus_connection_close(connection_.get(), nullptr, &closed, new std::shared_ptr<void>(life_));
    connection_ = nullptr;
}

void DaemonLink::busIsGone(const std::string& reason)
{
    if (!isClosed_)
        events_.busWent(reason);
}

void DaemonLink::onClosed(GDBusConnection*, gboolean, GError* error, gpointer data)
{
    const auto link = static_cast<LifeClosure*>(data)->link.lock();
    if (!link || link->isClosed_)
        return;
    guarded([&] { link->busIsGone(error ? error->message : "the connection has ended"); });
}

// The daemon

void DaemonLink::forgetDaemon()
{
    if (subscription_ != 0)
        g_dbus_connection_signal_unsubscribe(connection_.get(), std::exchange(subscription_, 0));
    owner_.clear();
    browsers_.clear();
    early_.clear();
    browsersBeingMade_ = 0;
}

void DaemonLink::onCame(GDBusConnection*, const char*, const char* owner, gpointer data)
{
    const auto link = static_cast<Closure*>(data)->link;
    guarded([&] { link->daemonIs(owner); });
}

void DaemonLink::onWent(GDBusConnection*, const char*, gpointer data)
{
    const auto link = static_cast<Closure*>(data)->link;
    // When the connection has ended the bus has gone, and that is told as such.
    if (link->connection_ && !g_dbus_connection_is_closed(link->connection_.get()))
        guarded([&] { link->daemonIs(""); });
}

void DaemonLink::daemonIs(const char* owner)
{
    if (isClosed_)
        return;
    forgetDaemon();
    owner_ = owner;
    if (owner_.empty())
        return events_.daemonWent();
    // By the owner's own name: what an earlier daemon has left on its way is not taken for the new one's.
    subscription_ = g_dbus_connection_signal_subscribe(connection_.get(), owner, nullptr, nullptr, nullptr, nullptr,
                                                       G_DBUS_SIGNAL_FLAGS_NONE, &DaemonLink::onSignal,
                                                       new Closure{shared_from_this()}, &Closure::free);
    events_.daemonCame();
}

void DaemonLink::call(const char* method, GVariant* arguments, Reply reply)
{
    g_dbus_connection_call(connection_.get(), owner_.c_str(), "/", kServerInterface, method, arguments, nullptr,
                           G_DBUS_CALL_FLAGS_NO_AUTO_START, kCallLimit, cancellable_.get(), &DaemonLink::onReply,
                           new CallClosure{shared_from_this(), owner_, std::move(reply)});
}

void DaemonLink::onReply(GObject* source, GAsyncResult* result, gpointer data)
{
    const std::unique_ptr<CallClosure> closure(static_cast<CallClosure*>(data));
    GError* error = nullptr;
    const Owned<GVariant> answer(g_dbus_connection_call_finish(G_DBUS_CONNECTION(source), result, &error));
    const Owned<GError> problem(error);
    const auto& link = closure->link;
    if (!link->isClosed_ && link->owner_ == closure->owner)
        guarded([&] { closure->reply(answer.get(), problem.get()); });
}

void DaemonLink::browse(const char* method, GVariant* arguments, Signal signal, std::function<void(const GError*)> made)
{
    ++browsersBeingMade_;
    call(method, arguments,
         [this, signal = std::move(signal), made = std::move(made)](GVariant* result, const GError* error) {
             --browsersBeingMade_;
             made(error);
             if (result && !isClosed_)
                 madeBrowser(result, signal);
         });
}

void DaemonLink::madeBrowser(GVariant* result, Signal signal)
{
    if (!g_variant_is_of_type(result, G_VARIANT_TYPE("(o)")))
        return;
    const char* path = nullptr;
    g_variant_get(result, "(&o)", &path);
    browsers_[path] = std::move(signal);
    std::vector<Early> waiting;
    for (auto& early : early_)
        if (early.path == path)
            waiting.push_back(std::move(early));
    std::erase_if(early_, [&](const Early& early) { return !early.arguments || browsersBeingMade_ == 0; });
    for (const auto& early : waiting)
        receive(early.path.c_str(), early.name.c_str(), early.arguments.get());
}

void DaemonLink::onSignal(GDBusConnection*, const char*, const char* path, const char*, const char* name,
                          GVariant* arguments, gpointer data)
{
    const auto link = static_cast<Closure*>(data)->link;
    guarded([&] { link->receive(path, name, arguments); });
}

void DaemonLink::receive(const char* path, const char* name, GVariant* arguments)
{
    if (isClosed_)
        return;
    const auto browser = browsers_.find(std::string_view(path));
    if (browser != browsers_.end()) {
        const Signal signal = browser->second; // the browser may go meanwhile
        signal(name, arguments);
    } else if (browsersBeingMade_ > 0) {
        early_.push_back({path, name, Owned<GVariant>(g_variant_ref(arguments))});
    }
}

} // namespace dmf::dnssd
