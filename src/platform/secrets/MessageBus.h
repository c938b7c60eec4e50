#pragma once

#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include <gio/gio.h>

#include <dmf/platform/DesktopServices.h>

#include "platform/runloop/BoundedWork.h"

namespace dmf::internal {

struct UnreferenceVariant {
    void operator()(GVariant* variant) const noexcept { g_variant_unref(variant); }
};
using Variant = std::unique_ptr<GVariant, UnreferenceVariant>;

/// The name that the keyring's program has on the session bus.
inline constexpr const char* kKeyringName = "org.freedesktop.secrets";

/// The address of the bus for this program, by its environment; nothing when it names none. Never starts a bus. Looked
/// up before the work begins: the work may outlive what the environment is read through.
[[nodiscard]] std::optional<std::string> busAddress(Bus bus);

/// A main context that is the thread's default for as long as this object lives.
class OwnContext {
public:
    OwnContext() : context_(g_main_context_new()) { g_main_context_push_thread_default(context_); }
    ~OwnContext()
    {
        g_main_context_pop_thread_default(context_);
        g_main_context_unref(context_);
    }
    OwnContext(const OwnContext&) = delete;
    OwnContext& operator=(const OwnContext&) = delete;

    [[nodiscard]] GMainContext* get() const noexcept { return context_; }

private:
    GMainContext* const context_;
};

/// A connection of one piece of work of its own, in a main context of its own, so that nothing of it reaches the
/// caller's. The process's shared connection would be kept for ever to the bus that was there first, and cannot be had
/// within a bound. Reentrant; used by the thread of its work.
class MessageBus {
public:
    enum class Problem : std::uint8_t { none, noSuchName, other };

    /// Connects; `isConnected` tells whether it went well.
    MessageBus(const std::string& address, BoundedWork& work);
    ~MessageBus();
    MessageBus(const MessageBus&) = delete;
    MessageBus& operator=(const MessageBus&) = delete;

    [[nodiscard]] bool isConnected() const noexcept { return isConnected_; }
    [[nodiscard]] GDBusConnection* connection() const noexcept { return connection_; }
    /// Where what the bus tells by itself is dispatched.
    [[nodiscard]] GMainContext* context() const noexcept { return context_.get(); }

    /// Calls and waits for the answer: a tuple of the kind `answer`, or empty, with `problem` telling why. A floating
    /// `arguments` is taken over.
    [[nodiscard]] Variant call(const std::string& name, const std::string& path, const char* interface,
                               const char* operation, GVariant* arguments, const char* answer,
                               Problem* problem = nullptr);

private:
    BoundedWork& work_;
    const OwnContext context_;
    GDBusConnection* const connection_;
    const bool isConnected_;
};

} // namespace dmf::internal
