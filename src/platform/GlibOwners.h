#pragma once

#include <memory>

#include <gio/gio.h>
#include <libsecret/secret.h>

namespace dmf::internal {

struct GlibRelease {
    void operator()(GVariant* variant) const noexcept { g_variant_unref(variant); }
    void operator()(GHashTable* table) const noexcept { g_hash_table_unref(table); }
    void operator()(SecretValue* value) const noexcept { secret_value_unref(value); }
    void operator()(gpointer object) const noexcept { g_object_unref(object); }
};

/// Owns a reference to one of GLib's things.
template <class T>
using Owned = std::unique_ptr<T, GlibRelease>;

/// Owns the error that a call fills, if it does.
class CallError {
public:
    CallError() = default;
    ~CallError() { g_clear_error(&error_); }
    CallError(const CallError&) = delete;
    CallError& operator=(const CallError&) = delete;

    GError** slot() noexcept { return &error_; }
    explicit operator bool() const noexcept { return error_ != nullptr; }

    /// Nobody on the bus has the name that was called: the bus itself says so, or failed to start who should have it.
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

} // namespace dmf::internal
