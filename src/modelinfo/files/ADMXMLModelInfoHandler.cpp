#include <dmf/ADMXMLModelInfoHandler.h>

#include <exception>
#include <new>
#include <utility>

#include <dmf/ADMInfo.h>
#include <dmf/ADMXMLElementImp.h>
#include <dmf/ADMXMLParser.h>
#include <dmf/ADMXMLParserFactory.h>
#include <dmf/DMKeys.h>

#include "modelinfo/files/ModelInfoLog.h"
#include "modelinfo/files/ParentChain.h"
#include "modelinfo/files/Spared.h"
#include "modelinfo/files/XmlMerge.h"

namespace {

using dmf::internal::logModelInfo;

std::shared_ptr<ADMXMLElement> parsed(ADMXMLParser& parser, const dmf::Data& data, const std::string& table)
{
    std::string reason;
    try {
        if (auto root = parser.parseData(data, &reason))
            return root;
    } catch (const std::bad_alloc&) {
        throw; // says nothing about the data
    } catch (const std::exception& error) {
        reason = error.what();
    } catch (...) {
        reason = "the parser threw an unknown exception";
    }
    logModelInfo("errors", "ModelInfo: cannot parse an XML document in '%@' table: %@", table, reason);
    return nullptr;
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

bool ADMXMLModelInfoHandler::isUnread()
{
    std::lock_guard guard(lock_);
    return data_.has_value();
}

std::shared_ptr<ADMInfo> ADMXMLModelInfoHandler::info()
{
    return dmf::internal::spared("reading a model file", [&]() -> std::shared_ptr<ADMInfo> {
        // Before the lock is taken: it may mean waiting for the loader, under whose lock a plug-in that is being loaded
        // may ask for this very file.
        const auto parser = isUnread() ? ADMXMLParserFactory::defaultFactory().defaultParser() : nullptr;
        std::lock_guard guard(lock_);
        if (!data_)
            return root_;
        const dmf::internal::BuildingTree building(*this);
        if (!parser) {
            logModelInfo("errors", "ModelInfo: cannot parse an XML document in '%@' table: there is no XML parser",
                         table_);
            throw dmf::internal::NoAnswer(); // what would inherit from this file must wait as well
        }
        root_ = mergedRoot(*parser, *data_);
        data_.reset(); // only now that there is a verdict: what does not parse is not tried again
        return root_;
    });
}

std::shared_ptr<ADMInfo> ADMXMLModelInfoHandler::mergedRoot(ADMXMLParser& parser, const dmf::Data& data) const
{
    const std::shared_ptr<ADMXMLElement> root = parsed(parser, data, table_);
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
    if (toXMLElement && !dmf::internal::overrides(*toXMLElement)) {
        for (const auto& element : elements)
            toXMLElement->addElement(element);
    }
    return toXMLElement;
}

std::shared_ptr<ADMXMLElement>
ADMXMLModelInfoHandler::mergeXMLElement(std::shared_ptr<ADMXMLElement> element,
                                        const std::shared_ptr<ADMXMLElement>& withXMLElement)
{
    if (element && withXMLElement) {
        dmf::internal::XmlMerge merge(*element);
        merge.take(*withXMLElement);
        merge.finish();
    }
    return element;
}
