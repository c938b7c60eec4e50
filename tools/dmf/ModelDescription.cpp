#include "ModelDescription.h"

#include <dmf/ADMCommunicationInfo.h>
#include <dmf/ADMFunctionalInfo.h>
#include <dmf/ADMInfo.h>
#include <dmf/ADMModelInfoImp.h>
#include <dmf/ADMModelInfoManager.h>
#include <dmf/ADMProtocolInfo.h>
#include <dmf/ADMTransportInfo.h>
#include <dmf/DMKeys.h>

#include <memory>
#include <string_view>
#include <vector>

namespace dmf::tool {

namespace {

using Node = std::shared_ptr<ADMInfo>;

// Property lists have no properties; their nodes go by no name then.
std::optional<std::string> property(const Node& node, std::string_view name)
{
    const auto properties = node->properties();
    return properties ? properties->string(name) : std::nullopt;
}

std::vector<Node> childrenNamed(const Node& node, std::string_view name)
{
    std::vector<Node> result;
    if (!node)
        return result;
    for (const auto& child : node->allInfos())
        if (child->name() == name)
            result.push_back(child);
    return result;
}

Json names(const std::vector<Node>& nodes)
{
    Json list = Json::array();
    for (const auto& node : nodes)
        if (const auto name = property(node, kDMName))
            list.push_back(*name);
    return list;
}

Json describeFeatures(const ADMProtocolInfo& protocol)
{
    Json features = Json::object();
    for (const auto& [name, text] : protocol.supportedFeatures()) {
        const auto properties = protocol.supportedPropertiesForFeature(name);
        features[name] = properties.empty() ? Json(text) : Json(properties);
    }
    return features;
}

Json describeService(ADMFunctionalInfo& interface, const Node& node)
{
    Json service;
    const auto name = property(node, kDMName);
    service["name"] = toJson(name);
    const auto info = name ? interface.communicationInfoNamed(*name) : ADMCommunicationInfo::initWithInfo(node);
    service["implementor"] = toJson(info ? info->implementorClassName() : std::nullopt);
    service["protocols"] = Json::array();
    const Node specific = info ? info->specificInfo() : nullptr;
    const Node list = specific ? specific->infoNamed(kDMProtocolsListKey) : nullptr;
    for (const auto& protocolNode : childrenNamed(list, kDMProtocolKey)) {
        const auto protocol = ADMProtocolInfo::initWithInfo(protocolNode);
        Json entry;
        entry["name"] = toJson(property(protocolNode, kDMName));
        entry["implementor"] = toJson(protocol->implementorClassName());
        entry["features"] = describeFeatures(*protocol);
        service["protocols"].push_back(std::move(entry));
    }
    return service;
}

Json describeConnections(const Node& interface)
{
    Json connections = Json::object();
    for (const auto& connection : childrenNamed(interface->infoNamed(kDMConnectionListKey), kDMConnectionKey))
        if (const auto type = property(connection, kDMType))
            connections[*type] = names(childrenNamed(connection, kDMServiceKey));
    return connections;
}

Json describeProtocolConnections(const Node& interface)
{
    Json connections = Json::object();
    const Node list = interface->infoNamed(kDMProtocolSpecificConnectionList);
    for (const auto& connection : childrenNamed(list, kDMConnectionKey))
        if (const auto type = property(connection, kDMType))
            for (const auto& protocol : childrenNamed(connection, kDMProtocolKey))
                if (const auto name = property(protocol, kDMName))
                    connections[*type][*name] = names(childrenNamed(protocol, kDMServiceKey));
    return connections;
}

Json describeInterface(const Node& node)
{
    Json interface;
    interface["name"] = toJson(property(node, kDMName));
    interface["services"] = Json::array();
    const auto info = ADMFunctionalInfo::initWithInfo(node, {});
    for (const auto& service : childrenNamed(node->infoNamed(kDMServiceListKey), kDMServiceKey))
        interface["services"].push_back(describeService(*info, service));
    interface["connections"] = describeConnections(node);
    if (Json special = describeProtocolConnections(node); !special.empty())
        interface["protocolConnections"] = std::move(special);
    return interface;
}

Json describeDeviceClasses(const Node& root)
{
    Json classes = Json::array();
    for (const auto& node : childrenNamed(root, kDMDeviceClassKey)) {
        Json deviceClass;
        deviceClass["name"] = toJson(property(node, kDMName));
        deviceClass["interfaces"] = Json::array();
        for (const auto& interface : childrenNamed(node, kDMFunctionalInterface))
            deviceClass["interfaces"].push_back(describeInterface(interface));
        classes.push_back(std::move(deviceClass));
    }
    return classes;
}

Json describeChannel(const Node& node)
{
    Json channel;
    channel["name"] = toJson(node->name());
    if (const auto properties = node->properties())
        for (const auto& [key, value] : *properties)
            channel[key] = toJson(value);
    if (const auto service = ADMTransportInfo::dnssdService(node))
        channel["DNS-SD"] = *service;
    if (const auto service = ADMTransportInfo::ianaService(node))
        channel["IANAService"] = *service;
    return channel;
}

Json describeTransport(ADMModelInfoImp& model, const Node& root)
{
    const auto transport = model.transportInfo();
    if (!transport)
        return nullptr;
    Json sets = Json::object();
    for (const auto& set : childrenNamed(root->infoNamed(kDMTransportKey), kDMIOChannelKey)) {
        const auto name = property(set, kDMName);
        if (!name)
            continue;
        sets[*name] = Json::array();
        for (const auto& channel : transport->ioChannelInfos(*name))
            sets[*name].push_back(describeChannel(channel));
    }
    Json locations = Json::array();
    for (const auto& location : transport->dot4Locations())
        locations.push_back(toJson(location->stringValue()));
    if (!locations.empty())
        sets["Dot4Locations"] = std::move(locations);
    return sets;
}

} // namespace

Json describeModel(const std::string& name)
{
    ADMModelInfoImp model(name);
    const Node root = model.infoFromTable(kDMFTableName);
    if (!root)
        return nullptr;
    const std::string normalized = ADMModelInfoImp::normalizeModelName(name);
    Json fields;
    fields["model"] = name;
    fields["normalized"] = normalized;
    fields["family"] = toJson(ADMPrivateModelInfoManager::sharedManager()->familyNameForModel(normalized));
    fields["information"] = {
        {"vendorName", toJson(model.vendorName())},   {"familyName", toJson(model.familyName())},
        {"modelId", toJson(model.modelId())},         {"modelCodeName", toJson(model.modelCodeName())},
        {"utilityName", toJson(model.utilityName())}, {"utilitySignature", toJson(model.utilitySignature())},
        {"pathToIcon", toJson(model.pathToIcon())},
    };
    fields["deviceClasses"] = describeDeviceClasses(root);
    fields["transport"] = describeTransport(model, root);
    return fields;
}

} // namespace dmf::tool
