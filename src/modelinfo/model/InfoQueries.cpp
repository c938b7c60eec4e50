#include "modelinfo/model/InfoQueries.h"

namespace dmf::internal {

Info child(const Info& node, std::string_view name)
{
    return node ? node->infoNamed(name) : nullptr;
}

Info child(const Info& node, std::string_view name, std::string_view property, std::string_view value)
{
    return node ? node->infoNamed(name, value, property) : nullptr;
}

std::vector<Info> children(const Info& node)
{
    return node ? node->allInfos() : std::vector<Info>();
}

std::vector<Info> children(const Info& node, std::string_view name)
{
    std::vector<Info> found;
    for (Info& each : children(node)) {
        if (each->name() == name)
            found.push_back(std::move(each));
    }
    return found;
}

std::optional<std::string> text(const Info& node)
{
    return node ? node->stringValue() : std::nullopt;
}

std::optional<std::string> property(const Info& node, std::string_view name)
{
    const std::optional<Dictionary> properties = node ? node->properties() : std::nullopt;
    return properties ? properties->string(name) : std::nullopt;
}

} // namespace dmf::internal
