#include "platform/secrets/SecretSession.h"

// For the two functions below that put secrets into messages and take them out.
#define SECRET_API_SUBJECT_TO_CHANGE
#include <libsecret/secret.h>

#include <string_view>

namespace dmf::internal {
namespace {

// libsecret's client goes over the process's shared session bus, which stays the one that was there first, ends a
// process whose bus goes away, and is the host's affair. Only its constructor says so, so a derived class leaves that
// one out, and is made as the bus's proxy that it is, on the connection of the work.
//
// Nothing else is left to libsecret: it reads answers without looking whether they are what they should be, logs errors
// that are none of the host's affair, and its calls never end when the keyring's program goes away before a prompt.
constexpr const char* kInterface = "org.freedesktop.Secret.Service";
constexpr const char* kInterfaceText = "<node><interface name='org.freedesktop.Secret.Service'>"
                                       "<method name='OpenSession'><arg type='s' direction='in'/>"
                                       "<arg type='v' direction='in'/><arg type='v' direction='out'/>"
                                       "<arg type='o' direction='out'/></method></interface></node>";

/// The one call that libsecret makes, so that GIO refuses answers of another kind.
GDBusInterfaceInfo* interfaceInfo()
{
    static GDBusNodeInfo* const node = g_dbus_node_info_new_for_xml(kInterfaceText, nullptr);
    return g_dbus_node_info_lookup_interface(node, kInterface);
}

void leaveConstructorOut(gpointer itself, gpointer)
{
    G_OBJECT_CLASS(itself)->constructor = G_OBJECT_CLASS(g_type_class_peek(G_TYPE_DBUS_PROXY))->constructor;
}

GType clientType()
{
    static const GType type =
        g_type_register_static_simple(SECRET_TYPE_SERVICE, "DmfSecretService", sizeof(SecretServiceClass),
                                      &leaveConstructorOut, sizeof(SecretService), nullptr, GTypeFlags{});
    return type;
}

struct ReleaseValue {
    void operator()(SecretValue* value) const noexcept { secret_value_unref(value); }
};
using Value = std::unique_ptr<SecretValue, ReleaseValue>;

} // namespace

bool SecretSession::open()
{
    constexpr auto flags = static_cast<GDBusProxyFlags>(G_DBUS_PROXY_FLAGS_DO_NOT_LOAD_PROPERTIES |
                                                        G_DBUS_PROXY_FLAGS_DO_NOT_CONNECT_SIGNALS);
    client_.reset(G_DBUS_PROXY(g_initable_new(clientType(), work_.cancellable(), nullptr, "g-connection",
                                              bus_.connection(), "g-flags", flags, "g-interface-info", interfaceInfo(),
                                              "g-name", kKeyringName, "g-object-path", "/org/freedesktop/secrets",
                                              "g-interface-name", kInterface, "flags", SECRET_SERVICE_NONE, nullptr)));
    return client_ && secret_service_ensure_session_sync(SECRET_SERVICE(client_.get()), work_.cancellable(), nullptr) &&
           std::string_view(secret_service_get_session_algorithms(SECRET_SERVICE(client_.get()))) != "plain";
}

const char* SecretSession::path() const
{
    return secret_service_get_session_dbus_path(SECRET_SERVICE(client_.get()));
}

GVariant* SecretSession::encipher(const Secret& secret) const
{
    const auto text = secret.empty() ? std::string_view("") : secret.view();
    // Not copied, so that there is no second place to wipe; it is only read.
    const Value value(
        secret_value_new_full(const_cast<char*>(text.data()), static_cast<gssize>(text.size()), "text/plain", nullptr));
    return secret_service_encode_dbus_secret(SECRET_SERVICE(client_.get()), value.get());
}

std::optional<Secret> SecretSession::decipher(GVariant* enciphered) const
{
    const Value value(secret_service_decode_dbus_secret(SECRET_SERVICE(client_.get()), enciphered));
    if (!value)
        return std::nullopt;
    gsize size = 0;
    const char* const text = secret_value_get(value.get(), &size);
    Secret secret(std::string_view(text, size));
    // libsecret wipes only what the system let it keep from being paged out.
    Secret::wipe(const_cast<char*>(text), size);
    return secret;
}

} // namespace dmf::internal
