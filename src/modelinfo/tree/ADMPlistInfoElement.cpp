#include <dmf/ADMPlistInfoElement.h>

#include <dmf/platform/Format.h>
#include <dmf/platform/PropertyList.h>

#include "modelinfo/tree/LazyFill.h"
#include "modelinfo/tree/NumberText.h"
#include "modelinfo/tree/TypeName.h"

#include <utility>

using dmf::Value;

namespace {

DMFlags flagsOf(const Value& info)
{
    DMFlags flags;
    switch (info.kind()) {
    case Value::Kind::dictionary: flags.isDictionary = 1; break;
    case Value::Kind::array: flags.isArray = 1; break;
    case Value::Kind::string: flags.isString = 1; break;
    case Value::Kind::number: flags.isNumber = 1; break;
    case Value::Kind::data: flags.isData = 1; break;
    case Value::Kind::date: flags.isDate = 1; break;
    case Value::Kind::null:
    case Value::Kind::boolean:
    case Value::Kind::object: break;
    }
    return flags;
}

} // namespace

ADMPlistInfoElement::ADMPlistInfoElement(std::optional<std::string> name, Value info)
    : flags_(flagsOf(info)), name_(std::move(name)), info_(std::move(info))
{
}

std::shared_ptr<ADMPlistInfoElement> ADMPlistInfoElement::plistInfoWithName(std::optional<std::string> name, Value info)
{
    return std::make_shared<ADMPlistInfoElement>(std::move(name), std::move(info));
}

ADMPlistInfoElement::~ADMPlistInfoElement() = default;

std::shared_ptr<ADMPlistInfoElement> ADMPlistInfoElement::makeChild(std::optional<std::string> name, Value info) const
{
    return plistInfoWithName(std::move(name), std::move(info));
}

Value ADMPlistInfoElement::value() const
{
    return info_;
}

std::optional<std::string> ADMPlistInfoElement::stringValue() const
{
    return flags_.isDate ? info_.asDate()->description() : info_.string();
}

std::optional<dmf::Number> ADMPlistInfoElement::numberValue() const
{
    if (const auto* number = info_.asNumber())
        return *number;
    const auto* text = info_.asString();
    return text ? std::optional<dmf::Number>(double{dmf::internal::leadingNumber(*text)}) : std::nullopt;
}

std::optional<dmf::Date> ADMPlistInfoElement::dateValue() const
{
    if (const auto* date = info_.asDate())
        return *date;
    const auto* text = info_.asString();
    return text ? dmf::Date::fromString(*text) : std::nullopt;
}

std::optional<dmf::Data> ADMPlistInfoElement::dataValue() const
{
    if (const auto* data = info_.asData())
        return *data;
    return flags_.isDictionary ? dmf::PropertyList::serialize(info_) : std::nullopt;
}

std::optional<dmf::Dictionary> ADMPlistInfoElement::properties() const
{
    return std::nullopt;
}

std::optional<std::string> ADMPlistInfoElement::name() const
{
    return name_;
}

std::shared_ptr<ADMInfo> ADMPlistInfoElement::infoNamed(std::optional<std::string_view> name, std::uint32_t index) const
{
    if (flags_.isDictionary && name) {
        const auto* entry = info_.asDictionary()->find(*name);
        return entry ? makeChild(std::string(*name), *entry) : nullptr;
    }
    if (!flags_.isArray || index == dmf::kNotFound)
        return nullptr;
    const auto& item = info_.asArray()->at(index);
    return item.isNull() ? nullptr : makeChild(std::nullopt, item);
}

std::shared_ptr<ADMInfo> ADMPlistInfoElement::infoNamed(std::string_view name) const
{
    return infoNamed(name, dmf::kNotFound);
}

std::shared_ptr<ADMInfo> ADMPlistInfoElement::infoNamed(std::string_view name, const dmf::Dictionary&) const
{
    return infoNamed(name);
}

std::shared_ptr<ADMInfo> ADMPlistInfoElement::infoNamed(std::string_view name, std::string_view, std::string_view) const
{
    return infoNamed(name);
}

std::vector<std::shared_ptr<ADMInfo>> ADMPlistInfoElement::infoForPath(std::string_view path) const
{
    std::shared_ptr<ADMInfo> node;
    for (const ADMInfo* current = this; current;) {
        const auto end = path.find('/');
        // The next node keeps what it needs of the current one, which may go.
        node = current->infoNamed(path.substr(0, end));
        current = node.get();
        if (end == path.npos)
            break;
        path.remove_prefix(end + 1);
    }
    return node ? List{std::move(node)} : List{};
}

std::shared_ptr<const ADMPlistInfoElement::List> ADMPlistInfoElement::infoList() const
{
    auto& lock = dmf::internal::lazyFillLock(this);
    {
        std::lock_guard guard(lock);
        if (infoList_)
            return infoList_;
    }
    auto list = std::make_shared<List>();
    const auto add = [&](std::optional<std::string_view> name, std::size_t index) {
        if (auto child = infoNamed(name, static_cast<std::uint32_t>(index)))
            list->push_back(std::move(child));
    };
    if (const auto* array = info_.asArray()) {
        list->reserve(array->size());
        for (std::size_t i = 0; i < array->size(); ++i)
            add(std::nullopt, i);
    } else if (const auto* dictionary = info_.asDictionary()) {
        list->reserve(dictionary->size());
        for (const auto& entry : *dictionary)
            add(entry.key, dmf::kNotFound);
    }
    std::lock_guard guard(lock);
    if (!infoList_)
        infoList_ = std::move(list);
    return infoList_;
}

std::vector<std::shared_ptr<ADMInfo>> ADMPlistInfoElement::allInfos() const
{
    return flags_.isArray || flags_.isDictionary ? *infoList() : List{};
}

std::uint32_t ADMPlistInfoElement::count() const
{
    return flags_.isArray || flags_.isDictionary ? static_cast<std::uint32_t>(infoList()->size()) : 0;
}

std::string ADMPlistInfoElement::description() const
{
    const auto address = [](const void* object) { return reinterpret_cast<std::uintptr_t>(object); };
    const std::optional<std::string> noProperties;
    return dmf::formatted("<%@ 0x%x name = \"%@\", properties = \"%@\", contents = \"0x%x\">",
                          dmf::internal::typeName(typeid(*this)), address(this), name_, noProperties,
                          info_.isNull() ? std::uintptr_t{0} : address(&info_));
}
