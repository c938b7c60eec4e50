#include "plugins/PlugInRules.h"

#include <dmf/ADMIOProvider.h>
#include <dmf/ADMInterface.h>
#include <dmf/DMKeys.h>

#include <filesystem>
#include <system_error>

namespace dmf::internal {
namespace {

void appendEntries(std::vector<NamedImplementor>& to, const Value& map)
{
    if (!map.asDictionary())
        return;
    for (const auto& [interfaceName, className] : *map.asDictionary()) {
        if (const auto* name = className.asString())
            to.push_back({interfaceName, *name});
    }
}

std::optional<std::string> entry(const Value& map, std::string_view interfaceName)
{
    return map.asDictionary() ? map.asDictionary()->string(interfaceName) : std::nullopt;
}

} // namespace

std::string normalFolder(const std::string& path)
{
    std::error_code failure;
    const auto absolute = std::filesystem::absolute(path, failure);
    const auto normal = std::filesystem::weakly_canonical(absolute, failure);
    std::string text = (failure ? absolute : normal).string();
    while (text.size() > 1 && text.back() == '/')
        text.pop_back();
    return text;
}

std::vector<NamedImplementor> namedImplementors(const Dictionary& info)
{
    std::vector<NamedImplementor> named;
    appendEntries(named, info[kDMPlugInProtocol2ImplementorMap]);
    if (auto provider = info.string(kDMMockIOProvider))
        named.push_back({std::string(ADMIOProvider::protocol().name()), *std::move(provider)});
    if (const auto* factories = info[kDMMockFactories].asDictionary()) {
        for (const auto& [label, factory] : *factories)
            appendEntries(named, factory);
    }
    return named;
}

std::optional<std::string> regularImplementorName(std::string_view interfaceName, const Dictionary& info)
{
    return entry(info[kDMPlugInProtocol2ImplementorMap], interfaceName);
}

std::optional<std::string> mockImplementorName(std::string_view interfaceName, const Dictionary& info)
{
    if (interfaceName == ADMIOProvider::protocol().name())
        return info.string(kDMMockIOProvider);
    if (const auto* factories = info[kDMMockFactories].asDictionary()) {
        for (const auto& [label, factory] : *factories) {
            if (auto name = entry(factory, interfaceName))
                return name;
        }
    }
    return std::nullopt;
}

bool isCompleteMock(const Dictionary& info)
{
    return info.contains(kDMMockScheme) && info.contains(kDMMockIOProvider);
}

bool isServingMock(const Dictionary& info)
{
    return info.contains(kDMMockScheme) && !namedImplementors(info).empty();
}

bool implements(const Class& tested, std::string_view interfaceName)
{
    return tested.conformsTo(Protocol(interfaceName, {}, {})); // descriptors are told apart by name
}

bool isFunctionalService(const Class& tested)
{
    return tested.conformsTo(ADMInterface::protocol()) && tested.conformsTo(ADMInterfaceInitialization::protocol());
}

bool isMockImplementor(const Class& tested)
{
    return tested.conformsTo(ADMIOProvider::protocol()) || isFunctionalService(tested);
}

} // namespace dmf::internal
