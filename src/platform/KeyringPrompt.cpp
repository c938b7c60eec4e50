#include "platform/KeyringPrompt.h"

#include <utility>

namespace dmf::internal {
namespace {

constexpr const char* kKeyringName = "org.freedesktop.secrets";
constexpr const char* kPrompt = "org.freedesktop.Secret.Prompt";

/// The end of a prompt, listened for from before it begins.
class PromptEnd {
public:
    PromptEnd(MessageBus& bus, const char* prompt) : connection_(bus.connection()), context_(bus.context())
    {
        GDBusConnection* const connection = connection_;
        g_main_context_push_thread_default(context_); // where signals are told; the caller's may not be turned
        completed_ = g_dbus_connection_signal_subscribe(connection, kKeyringName, kPrompt, "Completed", prompt, nullptr,
                                                        G_DBUS_SIGNAL_FLAGS_NONE, &onCompleted, this, nullptr);
        // A program that ends cannot say so in any other way.
        left_ = g_dbus_connection_signal_subscribe(connection, "org.freedesktop.DBus", "org.freedesktop.DBus",
                                                   "NameOwnerChanged", "/org/freedesktop/DBus", kKeyringName,
                                                   G_DBUS_SIGNAL_FLAGS_NONE, &onOwnerChanged, this, nullptr);
        // Nor can a bus.
        closed_ = g_signal_connect(connection, "closed", G_CALLBACK(&onClosed), this);
        g_main_context_pop_thread_default(context_);
    }
    ~PromptEnd()
    {
        g_dbus_connection_signal_unsubscribe(connection_, completed_);
        g_dbus_connection_signal_unsubscribe(connection_, left_);
        g_signal_handler_disconnect(connection_, closed_);
    }
    PromptEnd(const PromptEnd&) = delete;
    PromptEnd& operator=(const PromptEnd&) = delete;

    /// What the person agreed to, or nothing; `hasEnded` tells whether there was an end, or the work was late.
    [[nodiscard]] Owned<GVariant> wait(BoundedWork& work)
    {
        GSource* const cancelled = g_cancellable_source_new(work.cancellable());
        g_source_set_callback(cancelled,
                              G_SOURCE_FUNC(+[](GCancellable*, gpointer) -> gboolean { return G_SOURCE_REMOVE; }),
                              nullptr, nullptr);
        g_source_attach(cancelled, context_);
        while (!hasEnded_ && !work.isLate())
            g_main_context_iteration(context_, TRUE);
        g_source_destroy(cancelled);
        g_source_unref(cancelled);
        return std::move(answer_);
    }
    [[nodiscard]] bool hasEnded() const noexcept { return hasEnded_; }

private:
    void end(Owned<GVariant> answer, bool isAgreed)
    {
        hasEnded_ = true;
        answer_ = isAgreed ? std::move(answer) : nullptr;
    }
    static void onCompleted(GDBusConnection*, const char*, const char*, const char*, const char*, GVariant* parameters,
                            gpointer self)
    {
        gboolean isDismissed = TRUE;
        GVariant* answer = nullptr;
        if (g_variant_is_of_type(parameters, G_VARIANT_TYPE("(bv)")))
            g_variant_get(parameters, "(bv)", &isDismissed, &answer);
        static_cast<PromptEnd*>(self)->end(Owned<GVariant>(answer), !isDismissed);
    }
    static void onOwnerChanged(GDBusConnection*, const char*, const char*, const char*, const char*, GVariant*,
                               gpointer self)
    {
        static_cast<PromptEnd*>(self)->end(nullptr, false);
    }

    static void onClosed(GDBusConnection*, gboolean, GError*, gpointer self)
    {
        static_cast<PromptEnd*>(self)->end(nullptr, false);
    }

    GDBusConnection* const connection_;
    GMainContext* const context_;
    guint completed_ = 0;
    guint left_ = 0;
    gulong closed_ = 0;
    bool hasEnded_ = false;
    Owned<GVariant> answer_;
};

} // namespace

Owned<GVariant> performKeyringPrompt(MessageBus& bus, BoundedWork& work, const char* prompt)
{
    work.allowForPerson();
    PromptEnd end(bus, prompt);
    if (!bus.call(kKeyringName, prompt, kPrompt, "Prompt", g_variant_new("(s)", ""), "()"))
        return nullptr;
    auto answer = end.wait(work);
    if (!end.hasEnded()) {
        // Nobody waits any more: the window goes away. Sent without the work's cancellable, which is cancelled.
        constexpr int limit = 1000; // milliseconds
        (void)Owned<GVariant>(g_dbus_connection_call_sync(bus.connection(), kKeyringName, prompt, kPrompt, "Dismiss",
                                                          nullptr, nullptr, G_DBUS_CALL_FLAGS_NONE, limit, nullptr,
                                                          nullptr));
    }
    return answer;
}

} // namespace dmf::internal
