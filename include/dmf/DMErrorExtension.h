#pragma once

#include <string_view>

#include <dmf/platform/Error.h>
#include <dmf/platform/Export.h>
#include <dmf/platform/Value.h>

/// The value under `key` in the error's user info, or a null value; lets code read kDMErrorCode and the other keys from
/// an error as from a dictionary. Valid until the error is changed or destroyed. Thread-safe.
[[nodiscard]] DMF_EXPORT const dmf::Value& com_ql_dmf_objectForKey(const dmf::Error& error, std::string_view key);
