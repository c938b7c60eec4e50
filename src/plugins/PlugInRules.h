#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <dmf/platform/Class.h>
#include <dmf/platform/Value.h>

// Where plug-ins lie, what their descriptions say, and which classes may serve for it. All thread-safe.
namespace dmf::internal {

/// The folder in the form under which its bundles are known and reported, whichever path names it: absolute, and
/// without links as far as it exists.
[[nodiscard]] std::string normalFolder(const std::string& path);

struct NamedImplementor {
    std::string interfaceName;
    std::string className;
};

/// Every class that a regular or a mock plug-in's description names, with its interface.
[[nodiscard]] std::vector<NamedImplementor> namedImplementors(const Dictionary& info);
/// The class that a regular plug-in's description names for the interface, or nothing.
[[nodiscard]] std::optional<std::string> regularImplementorName(std::string_view interfaceName, const Dictionary& info);
/// The same for a mock plug-in. An interface that two factory dictionaries name gets the first by their labels.
[[nodiscard]] std::optional<std::string> mockImplementorName(std::string_view interfaceName, const Dictionary& info);
/// Whether a mock plug-in's description names both its scheme and its I/O provider.
[[nodiscard]] bool isCompleteMock(const Dictionary& info);
/// Whether a mock plug-in can answer a request: it names its scheme and at least one class, be it no I/O provider.
[[nodiscard]] bool isServingMock(const Dictionary& info);

/// Whether the class states the interface of that name, itself or by one that extends it.
[[nodiscard]] bool implements(const Class& tested, std::string_view interfaceName);
/// Whether objects of the class are functional services that can be made for a service.
[[nodiscard]] bool isFunctionalService(const Class& tested);
/// Whether a mock plug-in may offer the class, for whichever interface.
[[nodiscard]] bool isMockImplementor(const Class& tested);

} // namespace dmf::internal
