#pragma once

#include <dmf/platform/Export.h>
#include <dmf/platform/Value.h>

/// Whether `receiver` holds everything that `other` holds: an array holds an element or all elements of an array, a
/// dictionary holds a dictionary by this same rule, anything else must be equal. Where `receiver` has a dictionary and
/// `other` something else, that dictionary must hold it under the same key once more. An empty `other` is always held.
/// Thread-safe.
[[nodiscard]] DMF_EXPORT bool com_ql_dmf_containsObjectsFromDictionary(const dmf::Dictionary& receiver,
                                                                       const dmf::Dictionary& other);
