#pragma once

#include <memory>
#include <span>
#include <string>

#include <dmf/DMKeys.h>
#include <dmf/platform/Error.h>
#include <dmf/platform/Value.h>

namespace dmf::internal {

/// The one error of settings: stores it, where somebody wants it, and gives false.
inline bool refuseSetting(Error* error)
{
    if (error)
        *error = Error(std::string(kDMDeviceSettingsDomain), -1001);
    return false;
}

/// Runs a validation that was called by its name: the value comes first, and the last argument takes the error, which a
/// refusal always gives.
template <class Validation>
Value validateByName(std::span<Value> arguments, Validation validation)
{
    Error error;
    if (validation(arguments.front(), &error))
        return true;
    if (!error)
        refuseSetting(&error);
    arguments.back() = Value::ofObject(std::make_shared<Error>(error));
    return false;
}

} // namespace dmf::internal
