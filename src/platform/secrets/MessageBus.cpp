#include "platform/secrets/MessageBus.h"

#include <chrono>
#include <thread>

#include "platform/host/ForkGuard.h"
#include "platform/host/Host.h"

namespace dmf::internal {
namespace {

/// An owner of the error that a call fills, if it does.
class CallError {
public:
    CallError() = default;
    ~CallError() { g_clear_error(&error_); }
    CallError(const CallError&) = delete;
    CallError& operator=(const CallError&) = delete;

    GError** slot() noexcept { return &error_; }
    /// The bus itself says so, or failed to start who should have it.
    [[nodiscard]] bool saysNoSuchName() const noexcept
    {
        if (!error_ || error_->domain != G_DBUS_ERROR)
            return false;
        switch (error_->code) {
        case G_DBUS_ERROR_SERVICE_UNKNOWN:
        case G_DBUS_ERROR_NAME_HAS_NO_OWNER:
        case G_DBUS_ERROR_TIMED_OUT: return true;
        default: return error_->code >= G_DBUS_ERROR_SPAWN_EXEC_FAILED && error_->code <= G_DBUS_ERROR_SPAWN_NO_MEMORY;
        }
    }

private:
    GError* error_ = nullptr;
};

std::string unixAddress(const std::string& path)
{
    char* const escaped = g_dbus_address_escape_value(path.c_str());
    std::string address = "unix:path=" + std::string(escaped);
    g_free(escaped);
    return address;
}

GDBusConnection* newConnection(const std::string& address)
{
    constexpr auto flags = static_cast<GDBusConnectionFlags>(G_DBUS_CONNECTION_FLAGS_AUTHENTICATION_CLIENT |
                                                             G_DBUS_CONNECTION_FLAGS_MESSAGE_BUS_CONNECTION);
    return G_DBUS_CONNECTION(g_object_new(G_TYPE_DBUS_CONNECTION, "address", address.c_str(), "flags", flags, nullptr));
}

} // namespace

std::optional<std::string> busAddress(Bus bus)
{
    if (isForkedCopy())
        return std::nullopt;
    const Host& host = Host::current();
    const auto named = host.environment(bus == Bus::session ? "DBUS_SESSION_BUS_ADDRESS" : "DBUS_SYSTEM_BUS_ADDRESS");
    // "autolaunch" would start a program of the user's, and a bus that nobody else is on.
    if (named && !named->empty())
        return named->find("autolaunch:") == std::string::npos ? named : std::nullopt;
    if (bus == Bus::system)
        return unixAddress(host.path("/run/dbus/system_bus_socket"));
    const auto folder = host.environment("XDG_RUNTIME_DIR");
    return folder && folder->starts_with('/') ? std::optional(unixAddress(*folder + "/bus")) : std::nullopt;
}

/// Made and connected in two steps, so that one that could not be connected is let go like the others.
MessageBus::MessageBus(const std::string& address, BoundedWork& work)
    : work_(work), connection_(newConnection(address)),
      isConnected_(g_initable_init(G_INITABLE(connection_), work.cancellable(), nullptr) != FALSE)
{
}

/// What GDBus still has to say, that the bus is gone or a signal came, it leaves in the context; that holds the
/// connection, and the connection holds the context: undispatched, they would keep each other for ever, with the
/// descriptors. Its thread may add to it until the connection is gone.
MessageBus::~MessageBus()
{
    constexpr auto patience = std::chrono::seconds(1);
    constexpr auto pause = std::chrono::milliseconds(1); // GDBus tells nobody when it has done with a connection
    GWeakRef watched;
    g_weak_ref_init(&watched, connection_);
    g_object_unref(connection_);
    const auto isLeft = [&] {
        auto* const left = static_cast<GObject*>(g_weak_ref_get(&watched));
        if (left)
            g_object_unref(left);
        return left != nullptr;
    };
    const auto limit = BoundedWork::Clock::now() + patience;
    do {
        while (g_main_context_iteration(context_.get(), FALSE) && BoundedWork::Clock::now() < limit)
            ;
        if (!isLeft())
            break;
        std::this_thread::sleep_for(pause);
    } while (BoundedWork::Clock::now() < limit);
    g_weak_ref_clear(&watched);
}

Variant MessageBus::call(const std::string& name, const std::string& path, const char* interface, const char* operation,
                         GVariant* arguments, const char* answer, Problem* problem)
{
    constexpr int noLimitOfItsOwn = G_MAXINT; // the work's bound is the limit
    CallError error;
    Variant result(g_dbus_connection_call_sync(connection_, name.c_str(), path.c_str(), interface, operation, arguments,
                                               G_VARIANT_TYPE(answer), G_DBUS_CALL_FLAGS_NONE, noLimitOfItsOwn,
                                               work_.cancellable(), error.slot()));
    if (problem)
        *problem = result ? Problem::none : error.saysNoSuchName() ? Problem::noSuchName : Problem::other;
    return result;
}

} // namespace dmf::internal

namespace dmf {

using namespace internal;

BusServiceState busServiceState(Bus bus, std::string_view serviceName)
{
    const std::string name(serviceName);
    if (!g_dbus_is_name(name.c_str()))
        return BusServiceState::missing;
    const auto address = busAddress(bus);
    if (!address)
        return BusServiceState::noBus;
    const auto state = BoundedWork::run<BusServiceState>(Bounds(), [address, name](BoundedWork& work) {
        MessageBus connection(*address, work);
        if (!connection.isConnected())
            return work.isLate() ? BusServiceState::silent : BusServiceState::noBus;
        const auto owner = connection.call("org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus",
                                           "NameHasOwner", g_variant_new("(s)", name.c_str()), "(b)");
        gboolean isOwned = FALSE;
        if (owner)
            g_variant_get(owner.get(), "(b)", &isOwned);
        if (!isOwned)
            return work.isLate() ? BusServiceState::silent : BusServiceState::missing;
        // Whatever comes back, an error too, comes from somebody alive.
        (void)connection.call(name, "/", "org.freedesktop.DBus.Peer", "Ping", nullptr, "()");
        return work.isLate() ? BusServiceState::silent : BusServiceState::answers;
    });
    return state.value_or(BusServiceState::silent);
}

} // namespace dmf
