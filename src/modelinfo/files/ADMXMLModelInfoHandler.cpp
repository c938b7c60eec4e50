#include <dmf/ADMXMLModelInfoHandler.h>

#include <set>
#include <utility>

#include <dmf/ADMInfo.h>
#include <dmf/ADMXMLElementImp.h>
#include <dmf/ADMXMLParser.h>
#include <dmf/ADMXMLParserFactory.h>
#include <dmf/DMKeys.h>

#include "modelinfo/files/ModelInfoLog.h"
#include "modelinfo/files/ParentChain.h"

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
    element.removeChildren();
    for (const auto& node : children)
        element.addElement(node == child ? copy : node);
    return copy;
}

/// Elements that a merge took over from the parent file. They are shared with its tree, which other threads read: what
/// is to be merged into one of them is merged into a copy.
using TakenOver = std::set<std::shared_ptr<ADMXMLElement>>;

void merge(ADMXMLElement& element, const ADMXMLElement& source, TakenOver& takenOver);

void mergeIntoFound(const std::shared_ptr<ADMXMLElement>& found, const ADMXMLElement& inherited, TakenOver& takenOver)
{
    if (found->isMatrix() && inherited.isMatrix())
        return merge(*found, inherited, takenOver);
    if (overrides(*found))
        return;
    const auto nodes = inherited.children();
    ADMXMLModelInfoHandler::addXMLElements(nodes, found);
    for (const auto& node : nodes)
        if (auto taken = std::dynamic_pointer_cast<ADMXMLElement>(node))
            takenOver.insert(std::move(taken));
}

void merge(ADMXMLElement& element, const ADMXMLElement& source, TakenOver& takenOver)
{
    if (overrides(element))
        return;
    for (const auto& node : source.children()) {
        const auto inherited = std::dynamic_pointer_cast<ADMXMLElement>(node);
        auto found =
            inherited ? element.elementNamed(inherited->name().value_or(""), inherited->attributes()) : nullptr;
        if (!found) {
            element.addElement(node);
            if (inherited)
                takenOver.insert(inherited);
        } else if (!inherited->isLeaf()) {
            // An element that was taken over can be found for a later one of the same name with fewer attributes.
            if (takenOver.erase(found) != 0)
                found = replaceByCopy(element, found);
            mergeIntoFound(found, *inherited, takenOver);
        }
    }
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
    TakenOver takenOver;
    merge(*element, *withXMLElement, takenOver);
    return element;
}
