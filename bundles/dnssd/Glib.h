#pragma once

#include <memory>

#include <gio/gio.h>

namespace dmf::dnssd {

struct GlibFree {
    void operator()(GVariant* variant) const noexcept { g_variant_unref(variant); }
    void operator()(GError* error) const noexcept { g_error_free(error); }
    void operator()(char* text) const noexcept { g_free(text); }
    void operator()(GMainContext* context) const noexcept { g_main_context_unref(context); }
    void operator()(GDBusConnection* connection) const noexcept { g_object_unref(connection); }
    void operator()(GCancellable* cancellable) const noexcept { g_object_unref(cancellable); }
};

/// Owns one of GLib's things.
template <class T>
using Owned = std::unique_ptr<T, GlibFree>;

} // namespace dmf::dnssd
