#pragma once

#include <functional>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "Glib.h"

namespace dmf::dnssd {

/// A connection of its own to the system bus, and on it the Avahi daemon, which may come and go. A shared connection
/// would bring the host's settings along (ending the program with the bus, say) and would not come back after a loss.
///
/// Everything is asynchronous and happens on the thread that opened the link, by its thread-default main context; all
/// operations are for that thread. Nothing is called any more once the link is closed. Bus and daemon are not started
/// by it.
class DaemonLink : public std::enable_shared_from_this<DaemonLink> {
public:
    struct Events {
        std::function<void()> daemonCame;
        /// Also when there is none at the start.
        std::function<void()> daemonWent;
        /// There is no bus, or no longer; the link is of no further use.
        std::function<void(const std::string& reason)> busWent;
    };
    /// Either the result or the error is there.
    using Reply = std::function<void(GVariant* result, const GError* error)>;
    using Signal = std::function<void(std::string_view name, GVariant* arguments)>;

    /// `life` is let go once the last callback has been served, on whichever thread: until then the thread that opened
    /// the link has to turn its main context, or memory would be lost.
    DaemonLink(Events events, std::shared_ptr<void> life);
    DaemonLink(const DaemonLink&) = delete;
    DaemonLink& operator=(const DaemonLink&) = delete;

    void open();
    void close();

    /// Calls an operation of the daemon's server object; takes `arguments`, which may be floating, over. The reply
    /// comes within ten seconds, or never when the daemon goes.
    void call(const char* method, GVariant* arguments, Reply reply);
    /// Has the server object make one of its browsers, whose signals go to `signal` until the daemon goes. `made` is
    /// told, with an error or without.
    void browse(const char* method, GVariant* arguments, Signal signal, std::function<void(const GError*)> made);

private:
    struct Closure;
    struct CallClosure;
    struct Early {
        std::string path;
        std::string name;
        Owned<GVariant> arguments;
    };

    void connected(Owned<GDBusConnection> connection, const GError* error);
    void daemonIs(const char* owner);
    void busIsGone(const std::string& reason);
    void receive(const char* path, const char* name, GVariant* arguments);
    void madeBrowser(GVariant* result, Signal signal);
    void forgetDaemon();

    static void onConnected(GObject*, GAsyncResult* result, gpointer data);
    static void onClosed(GDBusConnection*, gboolean remotely, GError* error, gpointer data);
    static void onCame(GDBusConnection*, const char*, const char* owner, gpointer data);
    static void onWent(GDBusConnection*, const char*, gpointer data);
    static void onSignal(GDBusConnection*, const char* sender, const char* path, const char* interface,
                         const char* name, GVariant* arguments, gpointer data);
    static void onReply(GObject* source, GAsyncResult* result, gpointer data);

    const Events events_;
    const std::shared_ptr<void> life_;
    bool isClosed_ = false;
    Owned<GCancellable> cancellable_;
    Owned<GDBusConnection> connection_;
    guint watch_ = 0;
    guint subscription_ = 0;
    std::string owner_; ///< the daemon's name on the bus; empty while there is none
    std::map<std::string, Signal, std::less<>> browsers_;
    /// A browser's first signals can arrive before the reply that tells its path.
    std::vector<Early> early_;
    int browsersBeingMade_ = 0;
};

} // namespace dmf::dnssd
