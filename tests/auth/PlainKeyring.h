#pragma once

#include <atomic>
#include <string>
#include <thread>

#include <gio/gio.h>

/// A keyring program on a bus that takes passwords in plain text only, in an unlocked default keyring; counts those it
/// was handed. With `isConfused` it answers the question for keys with something else.
class PlainKeyring {
public:
    explicit PlainKeyring(const std::string& busAddress, bool isConfused = false) : isConfused_(isConfused)
    {
        thread_ = std::thread([this, busAddress] { serve(busAddress); });
        isReady_.wait(false);
    }
    ~PlainKeyring()
    {
        g_main_loop_quit(loop_);
        thread_.join();
        g_main_loop_unref(loop_);
    }
    PlainKeyring(const PlainKeyring&) = delete;
    PlainKeyring& operator=(const PlainKeyring&) = delete;

    [[nodiscard]] int items() const noexcept { return items_; }

private:
    static constexpr const char* kInterfaces =
        "<node><interface name='org.freedesktop.Secret.Service'>"
        "<method name='ReadAlias'><arg type='s' direction='in'/><arg type='o' direction='out'/></method>"
        "<method name='OpenSession'><arg type='s' direction='in'/><arg type='v' direction='in'/>"
        "<arg type='v' direction='out'/><arg type='o' direction='out'/></method></interface>"
        "<interface name='org.freedesktop.Secret.Collection'><property name='Locked' type='b' access='read'/>"
        "<method name='SearchItems'><arg type='a{ss}' direction='in'/><arg type='ao' direction='out'/></method>"
        "<method name='CreateItem'><arg type='a{sv}' direction='in'/><arg type='(oayays)' direction='in'/>"
        "<arg type='b' direction='in'/><arg type='o' direction='out'/><arg type='o' direction='out'/></method>"
        "</interface></node>";

    static void answer(GDBusConnection*, const char*, const char*, const char*, const char* operation,
                       GVariant* parameters, GDBusMethodInvocation* call, gpointer self)
    {
        auto& keyring = *static_cast<PlainKeyring*>(self);
        const std::string name = operation;
        const char* algorithm = "";
        if (name == "OpenSession")
            g_variant_get_child(parameters, 0, "&s", &algorithm);
        if (name == "ReadAlias")
            g_dbus_method_invocation_return_value(call, g_variant_new("(o)", "/collection"));
        else if (name == "OpenSession" && (keyring.isConfused_ || algorithm == std::string("plain")))
            g_dbus_method_invocation_return_value(call,
                                                  g_variant_new("(vo)", g_variant_new_string("no key"), "/session"));
        else if (name == "OpenSession")
            g_dbus_method_invocation_return_error_literal(call, G_DBUS_ERROR, G_DBUS_ERROR_NOT_SUPPORTED, "no ciphers");
        else if (name == "SearchItems")
            g_dbus_method_invocation_return_value(call, g_variant_new("(ao)", nullptr));
        else {
            ++keyring.items_;
            g_dbus_method_invocation_return_value(call, g_variant_new("(oo)", "/item", "/"));
        }
    }
    static GVariant* property(GDBusConnection*, const char*, const char*, const char*, const char*, GError**, gpointer)
    {
        return g_variant_new_boolean(FALSE);
    }

    void serve(const std::string& address)
    {
        GMainContext* const context = g_main_context_new();
        g_main_context_push_thread_default(context);
        loop_ = g_main_loop_new(context, FALSE);
        GDBusConnection* const bus = g_dbus_connection_new_for_address_sync(
            address.c_str(),
            static_cast<GDBusConnectionFlags>(G_DBUS_CONNECTION_FLAGS_AUTHENTICATION_CLIENT |
                                              G_DBUS_CONNECTION_FLAGS_MESSAGE_BUS_CONNECTION),
            nullptr, nullptr, nullptr);
        GDBusNodeInfo* const interfaces = g_dbus_node_info_new_for_xml(kInterfaces, nullptr);
        constexpr GDBusInterfaceVTable functions{&answer, &property, nullptr, {}};
        const char* const paths[] = {"/org/freedesktop/secrets", "/collection"};
        for (int i = 0; i < 2; ++i)
            g_dbus_connection_register_object(bus, paths[i], interfaces->interfaces[i], &functions, this, nullptr,
                                              nullptr);
        GVariant* const owned = g_dbus_connection_call_sync(
            bus, "org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus", "RequestName",
            g_variant_new("(su)", "org.freedesktop.secrets", 0), nullptr, G_DBUS_CALL_FLAGS_NONE, -1, nullptr, nullptr);
        g_variant_unref(owned);
        isReady_ = true;
        isReady_.notify_one();
        g_main_loop_run(loop_);
        g_dbus_connection_close_sync(bus, nullptr, nullptr);
        g_object_unref(bus);
        g_dbus_node_info_unref(interfaces);
        g_main_context_pop_thread_default(context);
        g_main_context_unref(context);
    }

    const bool isConfused_;
    std::atomic<int> items_ = 0;
    std::atomic<bool> isReady_ = false;
    GMainLoop* loop_ = nullptr;
    std::thread thread_;
};
