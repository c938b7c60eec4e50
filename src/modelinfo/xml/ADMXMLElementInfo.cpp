// The element as a node of model information.

#include <dmf/ADMXMLElementImp.h>

#include <dmf/DMStringExtension.h>

#include "modelinfo/tree/NumberText.h"

#include <utility>

using dmf::Value;

std::optional<std::string> ADMXMLElementImp::name() const
{
    return name_;
}

std::optional<dmf::Dictionary> ADMXMLElementImp::properties() const
{
    return attributes_;
}

std::shared_ptr<ADMInfo> ADMXMLElementImp::infoNamed(std::string_view name) const
{
    return firstNamed(name);
}

std::shared_ptr<ADMInfo> ADMXMLElementImp::infoNamed(std::optional<std::string_view> name, std::uint32_t index) const
{
    if (!name)
        return nullptr;
    const auto named = allNamed(*name);
    return index < named.size() ? named[index] : nullptr;
}

std::shared_ptr<ADMInfo> ADMXMLElementImp::infoNamed(std::string_view name, const dmf::Dictionary& properties) const
{
    return firstNamed(name, properties);
}

std::shared_ptr<ADMInfo> ADMXMLElementImp::infoNamed(std::string_view name, std::string_view propertyValue,
                                                     std::string_view property) const
{
    return firstNamed(name, propertyValue, property);
}

std::vector<std::shared_ptr<ADMInfo>> ADMXMLElementImp::infoForPath(std::string_view path) const
{
    const auto found = selectedBy(path);
    return {found.begin(), found.end()};
}

std::vector<std::shared_ptr<ADMInfo>> ADMXMLElementImp::allInfos() const
{
    std::vector<std::shared_ptr<ADMInfo>> infos;
    infos.reserve(elementsCount_);
    for (const auto& child : children_) {
        if (child->asElement())
            infos.push_back(std::static_pointer_cast<ADMXMLElementImp>(child));
    }
    return infos;
}

std::uint32_t ADMXMLElementImp::count() const
{
    return elementsCount_;
}

Value ADMXMLElementImp::value() const
{
    auto kept = userInfo();
    if (!kept.isNull())
        return kept;
    // Two threads may both compute it; they get the same one all the same.
    auto computed = computedValue();
    return computed.isNull() ? computed : keepValue(std::move(computed));
}

Value ADMXMLElementImp::computedValue() const
{
    if (isLeaf() && kind_ == ADMXMLNodeKind::text)
        return content_;
    if (isLeaf())
        return children_.empty() ? Value() : Value(children_.front()->content());
    if (isArray()) {
        dmf::Array values;
        for (const auto& child : children_) {
            const auto* element = child->asElement();
            auto value = element ? element->value() : Value();
            if (!value.isNull())
                values.append(std::move(value));
        }
        return values;
    }
    if (!isMatrix())
        return {};
    std::vector<dmf::Dictionary::Entry> entries;
    for (const auto& child : children_) {
        const auto* element = child->asElement();
        if (!element)
            continue;
        auto value = element->value();
        entries.push_back({element->identifier(), value.isNull() ? Value("") : std::move(value)});
    }
    return dmf::Dictionary(std::move(entries));
}

std::optional<std::string> ADMXMLElementImp::stringValue() const
{
    return isLeaf() ? value().string() : std::nullopt;
}

std::optional<dmf::Number> ADMXMLElementImp::numberValue() const
{
    if (!isLeaf())
        return std::nullopt;
    return double{dmf::internal::leadingNumber(stringValue().value_or(std::string()))};
}

std::optional<dmf::Date> ADMXMLElementImp::dateValue() const
{
    const auto text = stringValue();
    return text ? dmf::Date::fromString(*text) : std::nullopt;
}

std::optional<dmf::Data> ADMXMLElementImp::dataValue() const
{
    const auto text = stringValue();
    if (!text)
        return std::nullopt;
    const auto decoded = com_ql_dmf_dataDecodedWithBase64(*text);
    return decoded ? decoded : dmf::Data::fromText(*text);
}
