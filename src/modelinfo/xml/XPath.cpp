// Selecting elements by XPath expressions.

#include <dmf/ADMXMLElementImp.h>

#include <dmf/platform/Xml.h>

#include "platform/documents/XmlText.h"

#include <unordered_map>
#include <utility>

/// One step of a plain path: a child's name, perhaps with the value of one attribute: domain[@name="web"].
struct ADMXMLElementImp::Step {
    std::string_view name;
    std::string_view attribute;
    std::string_view value;
    bool hasAttribute = false;

    static std::optional<Step> take(std::string_view& path);
};

namespace {

bool takePrefix(std::string_view& text, std::string_view prefix)
{
    if (!text.starts_with(prefix))
        return false;
    text.remove_prefix(prefix.size());
    return true;
}

std::string_view takeName(std::string_view& text)
{
    const auto name = text.substr(0, dmf::internal::xml::nameLength(text));
    text.remove_prefix(name.size());
    return name;
}

} // namespace

/// Takes a step off the front; nothing for whatever is less plain.
std::optional<ADMXMLElementImp::Step> ADMXMLElementImp::Step::take(std::string_view& path)
{
    Step step;
    step.name = takeName(path);
    if (step.name.empty())
        return std::nullopt;
    if (!takePrefix(path, "[@"))
        return step;
    step.hasAttribute = true;
    step.attribute = takeName(path);
    // A declaration of a namespace is no attribute to a path; whoever asks for one nevertheless is left to the engine.
    if (step.attribute.empty() || step.attribute == "xmlns" || !takePrefix(path, "=") || path.empty())
        return std::nullopt;
    const char quote = path.front();
    const auto end = path.find(quote, 1);
    if ((quote != '"' && quote != '\'') || end == path.npos)
        return std::nullopt;
    step.value = path.substr(1, end - 1);
    path.remove_prefix(end + 1);
    return takePrefix(path, "]") ? std::optional(step) : std::nullopt;
}

/// The path's steps, or nothing when it takes the whole of XPath.
std::optional<std::vector<ADMXMLElementImp::Step>> ADMXMLElementImp::plainSteps(std::string_view path)
{
    std::vector<Step> steps;
    do {
        const auto step = Step::take(path);
        if (!step)
            return std::nullopt;
        steps.push_back(*step);
    } while (takePrefix(path, "/"));
    return path.empty() ? std::optional(std::move(steps)) : std::nullopt;
}

/// An element as a document, made for one query: elements change without their parents' knowing, so keeping it would
/// answer from what was.
struct ADMXMLElementImp::Mirror {
    explicit Mirror(const ADMXMLElementImp& root)
    {
        document = dmf::XmlDocument::withRootElement(root.name_.value_or(std::string()));
        if (!document)
            return;
        std::vector<std::pair<const ADMXMLElementImp*, dmf::XmlElement>> open{{&root, document->rootElement()}};
        while (!open.empty()) {
            const auto [original, image] = std::move(open.back());
            open.pop_back();
            for (const auto& [name, value] : original->attributes_)
                image.setAttribute(name, value.string().value_or(std::string()));
            for (const auto& child : original->children_) {
                const auto* element = child->asElement();
                if (!element) {
                    image.appendText(child->content_.value_or(std::string()));
                } else if (auto copy = image.appendElement(element->name_.value_or(std::string()))) {
                    originals.emplace(copy.identity(), std::static_pointer_cast<ADMXMLElementImp>(child));
                    open.emplace_back(element, std::move(copy));
                }
            }
        }
    }

    std::shared_ptr<dmf::XmlDocument> document;
    std::unordered_map<const void*, Pointer> originals;
};

std::vector<ADMXMLElementImp::Pointer> ADMXMLElementImp::selectedBy(std::string_view expression) const
{
    const auto steps = plainSteps(expression);
    return steps ? selectedByWalking(*steps) : selectedByMirror(expression);
}

/// Most paths are plain ones, and walking them takes no copy of the tree.
std::vector<ADMXMLElementImp::Pointer> ADMXMLElementImp::selectedByWalking(std::span<const Step> steps) const
{
    std::vector<Pointer> selected;
    const auto select = [&](const ADMXMLElementImp& parent, const Step& step) {
        for (auto& child : parent.allNamed(step.name)) {
            const auto* value = child->attributes_[step.attribute].asString();
            if (!step.hasAttribute || (value && *value == step.value))
                selected.push_back(std::move(child));
        }
    };
    select(*this, steps.front());
    for (const auto& step : steps.subspan(1)) {
        const auto parents = std::exchange(selected, {});
        for (const auto& parent : parents)
            select(*parent, step);
    }
    return selected;
}

std::vector<ADMXMLElementImp::Pointer> ADMXMLElementImp::selectedByMirror(std::string_view expression) const
{
    const Mirror mirror(*this);
    std::vector<Pointer> selected;
    if (!mirror.document)
        return selected;
    const auto root = mirror.document->rootElement();
    for (const auto& node : root.nodesForXPath(expression)) {
        const auto original = mirror.originals.find(node.identity());
        if (original != mirror.originals.end())
            selected.push_back(original->second);
        else if (node == root)
            selected.push_back(
                std::static_pointer_cast<ADMXMLElementImp>(const_cast<ADMXMLElementImp*>(this)->shared_from_this()));
    }
    return selected;
}
