#include <dmf/DMModelInfoExtension.h>

#include <dmf/ADMInfo.h>
#include <dmf/DMKeys.h>

#include "modelinfo/model/InfoQueries.h"

namespace {

std::optional<std::string> textOf(const dmf::Value& value)
{
    if (const dmf::Number* const number = value.asNumber())
        return number->description();
    if (const auto node = value.objectAs<ADMInfo>())
        return node->stringValue();
    return value.string();
}

} // namespace

bool com_ql_dmf_matchesModelInfoAlert(const dmf::Dictionary& receiver, const std::shared_ptr<ADMInfo>& alert)
{
    if (!alert)
        return false;
    const auto children = alert->allInfos();
    if (receiver.size() < children.size())
        return false;
    for (const auto& child : children) {
        const auto key = dmf::internal::property(child, kDMName);
        const auto reported = key ? textOf(receiver[*key]) : std::nullopt;
        if (!reported || reported != child->stringValue())
            return false;
    }
    return true;
}
