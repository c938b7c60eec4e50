#pragma once

#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include <gio/gio.h>

#include <dmf/platform/DesktopServices.h>

#include "platform/BoundedWork.h"

namespace dmf::internal {

struct UnreferenceVariant {
    void operator()(GVariant* variant) const noexcept { g_variant_unref(variant); }
};
using Variant = std::unique_ptr<GVariant, UnreferenceVariant>;

/// The address of the bus for this program, by its environment; nothing when it names none. Never starts a bus. Looked
/// up before the work begins: the work may outlive what the environment is read through.
[[nodiscard]] std::optional<std::string> busAddress(Bus bus);

/// A connection of one piece of work of its own. The process's shared connection would be kept for ever to the bus that
/// was there first, and cannot be had within a bound. Reentrant; used by the thread of its work.
class MessageBus {
public:
    enum class Problem : std::uint8_t { none, noSuchName, other };

    /// Connects; `isConnected` tells whether it went well.
    MessageBus(const std::string& address, BoundedWork& work);
    ~MessageBus();
    MessageBus(const MessageBus&) = delete;
    MessageBus& operator=(const MessageBus&) = delete;

    [[nodiscard]] bool isConnected() const noexcept { return connection_ != nullptr; }
    [[nodiscard]] GDBusConnection* connection() const noexcept { return connection_; }

    /// Calls and waits for the answer: a tuple of the kind `answer`, or empty, with `problem` telling why. A floating
    /// `arguments` is taken over.
    [[nodiscard]] Variant call(const std::string& name, const std::string& path, const char* interface,
                               const char* operation, GVariant* arguments, const char* answer,
                               Problem* problem = nullptr);

private:
    BoundedWork& work_;
    GDBusConnection* connection_ = nullptr;
};

} // namespace dmf::internal
