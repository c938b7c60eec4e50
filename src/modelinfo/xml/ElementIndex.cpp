#include "modelinfo/xml/ElementIndex.h"

#include <dmf/ADMXMLElementImp.h>
#include <dmf/platform/Unicode.h>

#include <algorithm>
#include <bit>
#include <functional>
#include <utility>

namespace dmf::internal {

namespace {

std::uint32_t hashOf(std::string_view identifier) noexcept
{
    return static_cast<std::uint32_t>(std::hash<std::string_view>()(identifier));
}

void appendAttribute(std::string& identifier, const Dictionary::Entry& attribute)
{
    identifier += attribute.key;
    if (const auto* const text = attribute.value.asString())
        identifier += *text;
}

/// Whether the order of the keys' bytes is their order regardless of letter case.
bool isFolded(const Dictionary& attributes)
{
    const auto changes = [](char c) { return (c >= 'A' && c <= 'Z') || static_cast<unsigned char>(c) >= 0x80; };
    return std::ranges::none_of(attributes, [&](const auto& entry) { return std::ranges::any_of(entry.key, changes); });
}

} // namespace

ElementIndex::ElementIndex(const NodeList& children, std::size_t elements)
    : children_(children), slots_(std::bit_ceil(2 * elements + 2))
{
    for (std::size_t place = 0; place < children.size(); ++place)
        enter(place);
}

void ElementIndex::append(std::string& identifier, std::string_view name, const Dictionary& attributes)
{
    identifier += name;
    if (attributes.size() < 2 || isFolded(attributes)) {
        for (const auto& attribute : attributes)
            appendAttribute(identifier, attribute);
        return;
    }
    std::vector<std::pair<std::string, const Dictionary::Entry*>> sorted;
    for (const auto& attribute : attributes)
        sorted.emplace_back(lowercased(attribute.key), &attribute);
    std::ranges::stable_sort(sorted, {}, [](const auto& pair) -> const std::string& { return pair.first; });
    for (const auto& [folded, attribute] : sorted)
        appendAttribute(identifier, *attribute);
}

std::string ElementIndex::of(const ADMXMLElementImp& element)
{
    if (element.identifier_)
        return *element.identifier_;
    std::string identifier;
    append(identifier, element.name_.view(), element.attributes_);
    return identifier;
}

bool ElementIndex::goesBy(const ADMXMLElementImp& element, std::string_view identifier)
{
    const auto take = [&identifier](std::string_view part) {
        const bool is = identifier.starts_with(part);
        identifier.remove_prefix(is ? part.size() : 0);
        return is;
    };
    if (element.identifier_ || (element.attributes_.size() > 1 && !isFolded(element.attributes_)))
        return of(element) == identifier;
    if (!take(element.name_.view()))
        return false;
    for (const auto& [attribute, value] : element.attributes_) {
        const auto* const text = value.asString();
        if (!take(attribute) || !take(text ? std::string_view(*text) : std::string_view()))
            return false;
    }
    return identifier.empty();
}

ADMXMLElementImp* ElementIndex::findAmongFew(const NodeList& children, std::string_view identifier)
{
    ADMXMLElementImp* found = nullptr;
    for (const auto& child : children) {
        auto* const element = child->asElement();
        if (element && goesBy(*element, identifier))
            found = element;
    }
    return found;
}

std::size_t ElementIndex::countAmongFew(const NodeList& children)
{
    std::vector<std::string> identifiers;
    for (const auto& child : children) {
        if (const auto* const element = child->asElement())
            identifiers.push_back(of(*element));
    }
    std::ranges::sort(identifiers);
    return static_cast<std::size_t>(std::ranges::unique(identifiers).begin() - identifiers.begin());
}

ADMXMLElementImp* ElementIndex::at(const Slot& slot) const
{
    return children_[slot.place - 1]->asElement();
}

std::size_t ElementIndex::slotOf(std::string_view identifier, std::uint32_t hash) const
{
    std::size_t slot = hash & (slots_.size() - 1);
    while (slots_[slot].place != 0 && (slots_[slot].hash != hash || !goesBy(*at(slots_[slot]), identifier)))
        slot = (slot + 1) & (slots_.size() - 1);
    return slot;
}

void ElementIndex::enter(std::size_t place)
{
    const auto* const child = children_[place]->asElement();
    if (!child) // a text
        return;
    if (2 * (count_ + 1) > slots_.size())
        grow();
    const std::string identifier = of(*child);
    const std::uint32_t hash = hashOf(identifier);
    Slot& slot = slots_[slotOf(identifier, hash)];
    count_ += slot.place == 0 ? 1 : 0;
    slot = {hash, static_cast<std::uint32_t>(place + 1)};
}

void ElementIndex::grow()
{
    std::vector<Slot> larger(2 * slots_.size());
    for (const Slot& entered : slots_) {
        if (entered.place == 0)
            continue;
        std::size_t slot = entered.hash & (larger.size() - 1);
        while (larger[slot].place != 0)
            slot = (slot + 1) & (larger.size() - 1);
        larger[slot] = entered;
    }
    slots_ = std::move(larger);
}

ADMXMLElementImp* ElementIndex::find(std::string_view identifier) const
{
    const Slot& slot = slots_[slotOf(identifier, hashOf(identifier))];
    return slot.place == 0 ? nullptr : at(slot);
}

} // namespace dmf::internal
