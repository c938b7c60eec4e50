#include "platform/BoundedSecretService.h"

#include "platform/KeyringPrompt.h"

namespace dmf::internal {
namespace {

// The C side of a class that GObject knows: SecretService is made to be derived from.
struct BoundedSecretService {
    SecretService parent;
    MessageBus* bus;
    BoundedWork* work;
};
struct BoundedSecretServiceClass {
    SecretServiceClass parent;
};

/// What the prompt gave, of the type that the caller expects. A refusal is told as an error: without one libsecret
/// looks into what was agreed to.
GVariant* prompt(SecretService* self, SecretPrompt* question, GCancellable*, const GVariantType* type, GError** error)
{
    const auto* const service = reinterpret_cast<BoundedSecretService*>(self);
    auto answer =
        performKeyringPrompt(*service->bus, *service->work, g_dbus_proxy_get_object_path(G_DBUS_PROXY(question)));
    if (answer && (!type || g_variant_is_of_type(answer.get(), type)))
        return answer.release();
    g_set_error_literal(error, G_IO_ERROR, G_IO_ERROR_CANCELLED, "nobody agreed");
    return nullptr;
}

/// The thread is the work's own, so it may wait here.
void beginPrompt(SecretService* self, SecretPrompt* question, const GVariantType* type, GCancellable* cancellable,
                 GAsyncReadyCallback callback, gpointer data)
{
    const Owned<GTask> task(g_task_new(self, nullptr, callback, data));
    GError* error = nullptr;
    GVariant* const answer = prompt(self, question, cancellable, type, &error);
    if (answer)
        g_task_return_pointer(task.get(), answer, reinterpret_cast<GDestroyNotify>(&g_variant_unref));
    else
        g_task_return_error(task.get(), error);
}

GVariant* endPrompt(SecretService*, GAsyncResult* result, GError** error)
{
    return static_cast<GVariant*>(g_task_propagate_pointer(G_TASK(result), error));
}

void setUpClass(gpointer itself, gpointer)
{
    auto& service = static_cast<BoundedSecretServiceClass*>(itself)->parent;
    // libsecret's own prompt never ends when the keyring's program or the bus goes away meanwhile.
    service.prompt_sync = &prompt;
    service.prompt_async = &beginPrompt;
    service.prompt_finish = &endPrompt;
    // The parent's constructor sets nothing but the shared bus, and the names that are given below.
    G_OBJECT_CLASS(itself)->constructor = G_OBJECT_CLASS(g_type_class_peek(G_TYPE_DBUS_PROXY))->constructor;
}

GType boundedSecretServiceType()
{
    static const GType type =
        g_type_register_static_simple(SECRET_TYPE_SERVICE, "DmfBoundedSecretService", sizeof(BoundedSecretServiceClass),
                                      &setUpClass, sizeof(BoundedSecretService), nullptr, GTypeFlags{});
    return type;
}

} // namespace

Owned<SecretService> openSecretService(MessageBus& bus, BoundedWork& work, GError** error)
{
    // What the service has and what changes in it is asked for where it is wanted.
    constexpr auto flags = static_cast<GDBusProxyFlags>(G_DBUS_PROXY_FLAGS_DO_NOT_LOAD_PROPERTIES |
                                                        G_DBUS_PROXY_FLAGS_DO_NOT_CONNECT_SIGNALS);
    Owned<SecretService> service(SECRET_SERVICE(g_initable_new(
        boundedSecretServiceType(), work.cancellable(), error, "g-connection", bus.connection(), "g-flags", flags,
        "g-name", "org.freedesktop.secrets", "g-object-path", "/org/freedesktop/secrets", "g-interface-name",
        "org.freedesktop.Secret.Service", "flags", SECRET_SERVICE_NONE, nullptr)));
    if (service) {
        auto* const own = reinterpret_cast<BoundedSecretService*>(service.get());
        own->bus = &bus;
        own->work = &work;
    }
    return service;
}

} // namespace dmf::internal
