#pragma once

#include <memory>
#include <optional>

#include <gio/gio.h>

#include <dmf/platform/Secret.h>

#include "platform/runloop/BoundedWork.h"
#include "platform/secrets/MessageBus.h"

namespace dmf::internal {

/// What the library and the keyring's program agree on, so that secrets travel between them enciphered: the bus itself
/// and its buffers, which nobody wipes, then never hold one. By libsecret. Reentrant; used by the thread of its work,
/// which it must not outlive.
class SecretSession {
public:
    SecretSession(MessageBus& bus, BoundedWork& work) : bus_(bus), work_(work) {}

    /// Agrees on keys. False where nobody answers in time, and for a program that takes secrets in plain text only.
    [[nodiscard]] bool open();

    /// The rest only once `open` was true. The session's path on the bus.
    [[nodiscard]] const char* path() const;
    /// Secrets as they are on the bus: "(oayays)". What was not enciphered in this session gives nothing.
    [[nodiscard]] GVariant* encipher(const Secret& secret) const;
    [[nodiscard]] std::optional<Secret> decipher(GVariant* enciphered) const;

private:
    struct Unreference {
        void operator()(GDBusProxy* client) const noexcept { g_object_unref(client); }
    };

    MessageBus& bus_;
    BoundedWork& work_;
    std::unique_ptr<GDBusProxy, Unreference> client_; // libsecret's
};

} // namespace dmf::internal
