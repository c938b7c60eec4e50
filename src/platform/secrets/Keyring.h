#pragma once

#include <functional>
#include <optional>
#include <string>

#include <dmf/platform/DesktopServices.h>
#include <dmf/platform/Export.h>
#include <dmf/platform/Secret.h>

#include "platform/host/Bounds.h"

namespace dmf::internal {

/// What a password is kept under: all of them are attributes of the item, by which it is found. The kind of
/// authentication, the fourth, is the same for all.
struct KeyringPlace {
    std::string server;
    std::string label;
};

/// Tells the place, or that there is none, within so many seconds; they count towards the bound of the call that asks.
using KeyringPlaceOf = std::function<std::optional<KeyringPlace>(double seconds)>;

/// What the keyring gave for a place.
struct KeyringItem {
    std::string account;
    Secret password;
};

/// The first item of the place in any of the user's keyrings that is not locked, whatever its schema. Nothing when
/// there is none, and for every failure. Asks nobody. Blocks for up to `bounds.answer`. Thread-safe. These are exported
/// for the tests.
[[nodiscard]] DMF_EXPORT std::optional<KeyringItem> findInKeyring(const KeyringPlaceOf& placeOf, Bounds bounds = {});

/// Adds an item to the default keyring, which a person may be asked to unlock. False when it holds an item of the same
/// attributes already, and for every failure; where the answer is late, the item may still come to be. Blocks for up to
/// `bounds.answer`, or for up to `bounds.person` where a person is asked. Thread-safe.
[[nodiscard]] DMF_EXPORT bool storeInKeyring(const KeyringPlaceOf& placeOf, const std::string& account, Secret password,
                                             Bounds bounds = {});

} // namespace dmf::internal
