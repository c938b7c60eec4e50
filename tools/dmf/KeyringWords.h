#pragma once

#include <dmf/platform/DesktopServices.h>

namespace dmf::tool {

/// What people are told of a state of their keyring, and what they can do about it ("" when nothing).
struct KeyringWords {
    const char* state;
    const char* advice;
};

[[nodiscard]] inline KeyringWords keyringWords(KeyringState state) noexcept
{
    switch (state) {
    case KeyringState::noBus:
        return {"there is no session bus, so no keyring",
                "log in to a desktop session, or set DBUS_SESSION_BUS_ADDRESS (dbus-run-session gives a bus)"};
    case KeyringState::noService:
        return {"no keyring program runs", "install and start one that offers org.freedesktop.secrets"};
    case KeyringState::silent:
        return {"the keyring program does not answer", "look whether it hangs, and start it anew"};
    case KeyringState::noKeyring: return {"no keyring is set up", "make a default keyring with the keyring program"};
    case KeyringState::locked:
        return {"the keyring is locked", "unlock it: log in with its password, or use the keyring program"};
    case KeyringState::ready: return {"the keyring is ready", ""};
    }
    return {"unknown", ""};
}

} // namespace dmf::tool
