#include "platform/secrets/KeyringPrompt.h"

#include <optional>

namespace dmf::internal {
namespace {

constexpr const char* kPrompt = "org.freedesktop.Secret.Prompt";

/// The end of a prompt, listened for from before it begins.
class PromptEnd {
public:
    PromptEnd(MessageBus& bus, const std::string& prompt) : connection_(bus.connection()), context_(bus.context())
    {
        GDBusConnection* const connection = connection_;
        completed_ = g_dbus_connection_signal_subscribe(connection, kKeyringName, kPrompt, "Completed", prompt.c_str(),
                                                        nullptr, G_DBUS_SIGNAL_FLAGS_NONE, &onCompleted, this, nullptr);
        // A program that ends cannot say so in any other way.
        left_ = g_dbus_connection_signal_subscribe(connection, "org.freedesktop.DBus", "org.freedesktop.DBus",
                                                   "NameOwnerChanged", "/org/freedesktop/DBus", kKeyringName,
                                                   G_DBUS_SIGNAL_FLAGS_NONE, &onOwnerChanged, this, nullptr);
        // Nor can a bus.
        closed_ = g_signal_connect(connection, "closed", G_CALLBACK(&onClosed), this);
    }
    ~PromptEnd()
    {
        g_dbus_connection_signal_unsubscribe(connection_, completed_);
        g_dbus_connection_signal_unsubscribe(connection_, left_);
        g_signal_handler_disconnect(connection_, closed_);
    }
    PromptEnd(const PromptEnd&) = delete;
    PromptEnd& operator=(const PromptEnd&) = delete;

    /// Whether the person agreed; nothing when the work was late.
    [[nodiscard]] std::optional<bool> wait(BoundedWork& work)
    {
        // Not by a source of the cancellable: one that is let go while it is being cancelled may never be freed. What
        // is woken before it sleeps does not sleep.
        const gulong watch = g_cancellable_connect(work.cancellable(), G_CALLBACK(+[](GCancellable*, gpointer context) {
                                                       g_main_context_wakeup(static_cast<GMainContext*>(context));
                                                   }),
                                                   context_, nullptr);
        while (!agreed_ && !work.isLate())
            g_main_context_iteration(context_, TRUE);
        g_cancellable_disconnect(work.cancellable(), watch);
        return agreed_;
    }

private:
    static void onCompleted(GDBusConnection*, const char*, const char*, const char*, const char*, GVariant* parameters,
                            gpointer self)
    {
        gboolean isDismissed = TRUE;
        if (g_variant_is_of_type(parameters, G_VARIANT_TYPE("(bv)")))
            g_variant_get_child(parameters, 0, "b", &isDismissed);
        static_cast<PromptEnd*>(self)->agreed_ = !isDismissed;
    }
    static void onOwnerChanged(GDBusConnection*, const char*, const char*, const char*, const char*, GVariant*,
                               gpointer self)
    {
        static_cast<PromptEnd*>(self)->agreed_ = false;
    }

    static void onClosed(GDBusConnection*, gboolean, GError*, gpointer self)
    {
        static_cast<PromptEnd*>(self)->agreed_ = false;
    }

    GDBusConnection* const connection_;
    GMainContext* const context_;
    guint completed_ = 0;
    guint left_ = 0;
    gulong closed_ = 0;
    std::optional<bool> agreed_;
};

} // namespace

bool performKeyringPrompt(MessageBus& bus, BoundedWork& work, const std::string& prompt)
{
    PromptEnd end(bus, prompt);
    const bool isAsked = bus.call(kKeyringName, prompt, kPrompt, "Prompt", g_variant_new("(s)", ""), "()") != nullptr;
    const auto agreed = isAsked ? end.wait(work) : std::nullopt;
    if (!agreed && work.isLate()) {
        // Nobody waits any more: the window goes away, or does not come. Sent without the work's cancellable, which is
        // cancelled.
        constexpr int limit = 1000; // milliseconds
        GVariant* const answer =
            g_dbus_connection_call_sync(bus.connection(), kKeyringName, prompt.c_str(), kPrompt, "Dismiss", nullptr,
                                        nullptr, G_DBUS_CALL_FLAGS_NONE, limit, nullptr, nullptr);
        if (answer)
            g_variant_unref(answer);
    }
    return agreed.value_or(false);
}

} // namespace dmf::internal
