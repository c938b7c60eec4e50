#include <dmf/ADMXMLModelInfoHandler.h>

#include <set>
#include <utility>

#include <dmf/ADMInfo.h>
#include <dmf/ADMXMLElementImp.h>
#include <dmf/ADMXMLParser.h>
#include <dmf/ADMXMLParserFactory.h>
#include <dmf/DMKeys.h>

#include "modelinfo/ModelInfoLog.h"
#include "modelinfo/ParentChain.h"

namespace {

bool overrides(const ADMXMLElement& element)
{
    const dmf::Value& mark = element.attributes()["override"];
    return mark.asString() && *mark.asString() == "true";
}

/// A copy of the child in its place, so that it can be changed while the parent's tree keeps the original.
std::shared_ptr<ADMXMLElement> replaceByCopy(ADMXMLElement& element, const std::shared_ptr<ADMXMLElement>& child)
{
    const auto children = element.children();
    const auto copy = std::dynamic_pointer_cast<ADMXMLElement>(child->copy());
    element.removeAllElements();
    for (const auto& node : children)
        element.addElement(node == child ? copy : node);
    return copy;
}

void mergeIntoFound(const std::shared_ptr<ADMXMLElement>& found, const std::shared_ptr<ADMXMLElement>& inherited)
{
    if (inherited->isLeaf())
        return;
    if (found->isMatrix() && inherited->isMatrix())
        ADMXMLModelInfoHandler::mergeXMLElement(found, inherited);
    else
        ADMXMLModelInfoHandler::addXMLElements(inherited->children(), found);
}

std::shared_ptr<ADMXMLElement> parsed(const dmf::Data& data, const std::string& table)
{
    const auto parser = ADMXMLParserFactory::defaultFactory().defaultParser();
    std::string reason = "there is no XML parser";
    const auto root = parser ? parser->parseData(data, &reason) : nullptr;
    if (!root)
        dmf::internal::logModelInfo("errors", "ModelInfo: cannot parse an XML document in '%@' table: %@", table,
                                    reason);
    return root;
}

} // namespace

std::shared_ptr<ADMXMLModelInfoHandler> ADMXMLModelInfoHandler::initWithData(dmf::Data data, std::string table)
{
    if (data.empty())
        return nullptr;
    return std::shared_ptr<ADMXMLModelInfoHandler>(new ADMXMLModelInfoHandler(std::move(data), std::move(table)));
}

ADMXMLModelInfoHandler::ADMXMLModelInfoHandler(dmf::Data data, std::string table)
    : table_(std::move(table)), data_(std::move(data))
{
}

ADMXMLModelInfoHandler::~ADMXMLModelInfoHandler() = default;

std::shared_ptr<ADMInfo> ADMXMLModelInfoHandler::info()
{
    std::lock_guard guard(lock_);
    if (data_) {
        const dmf::internal::BuildingTree building(*this);
        // Gone whatever becomes of it: what does not parse is not tried again.
        const dmf::Data data = *std::exchange(data_, std::nullopt);
        root_ = mergedRoot(data);
    }
    return root_;
}

std::shared_ptr<ADMInfo> ADMXMLModelInfoHandler::mergedRoot(const dmf::Data& data) const
{
    const std::shared_ptr<ADMXMLElement> root = parsed(data, table_);
    if (!root)
        return nullptr;
    const std::shared_ptr<ADMInfo> info = std::dynamic_pointer_cast<ADMInfo>(root);
    const std::shared_ptr<ADMInfo> parentNode = info->infoNamed(kDMParentNameKey);
    const std::optional<std::string> parentName = parentNode ? parentNode->stringValue() : std::nullopt;
    if (!parentName)
        return info;
    // A parent that is a property list has no elements to inherit.
    const auto parent = std::dynamic_pointer_cast<ADMXMLElement>(dmf::internal::parentInfo(*parentName, table_));
    if (!parent)
        return info;
    if (parent->isMatrix() && root->isMatrix())
        mergeXMLElement(root, parent);
    else
        addXMLElements(parent->children(), root);
    return info;
}

std::shared_ptr<ADMXMLElement>
ADMXMLModelInfoHandler::addXMLElements(const std::vector<std::shared_ptr<ADMXMLNode>>& elements,
                                       std::shared_ptr<ADMXMLElement> toXMLElement)
{
    if (!overrides(*toXMLElement)) {
        for (const auto& element : elements)
            toXMLElement->addElement(element);
    }
    return toXMLElement;
}

std::shared_ptr<ADMXMLElement>
ADMXMLModelInfoHandler::mergeXMLElement(std::shared_ptr<ADMXMLElement> element,
                                        const std::shared_ptr<ADMXMLElement>& withXMLElement)
{
    if (overrides(*element))
        return element;
    // An element that was taken over can be found for a later one of the same name with fewer attributes.
    std::set<std::shared_ptr<ADMXMLElement>> takenOver;
    for (const auto& node : withXMLElement->children()) {
        const auto inherited = std::dynamic_pointer_cast<ADMXMLElement>(node);
        auto found =
            inherited ? element->elementNamed(inherited->name().value_or(""), inherited->attributes()) : nullptr;
        if (!found) {
            element->addElement(node);
            if (inherited)
                takenOver.insert(inherited);
            continue;
        }
        if (!inherited->isLeaf() && takenOver.erase(found) != 0)
            found = replaceByCopy(*element, found);
        mergeIntoFound(found, inherited);
    }
    return element;
}
