#pragma once

#include <cxxabi.h>

#include <cstdlib>
#include <memory>
#include <string>
#include <typeinfo>

namespace dmf::internal {

/// The name of an object's class for descriptions, so that subclasses show as what they are.
[[nodiscard]] inline std::string typeName(const std::type_info& type)
{
    int status = 0;
    const std::unique_ptr<char, void (*)(void*)> readable(abi::__cxa_demangle(type.name(), nullptr, nullptr, &status),
                                                          std::free);
    return readable ? readable.get() : type.name();
}

} // namespace dmf::internal
