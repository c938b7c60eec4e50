#include "modelinfo/xml/ElementPath.h"

#include "platform/documents/XmlMirror.h"
#include "platform/documents/XmlText.h"

#include <unordered_map>
#include <utility>

namespace dmf::internal {

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

bool declaresNamespace(std::string_view attribute)
{
    return attribute == "xmlns" || attribute.starts_with("xmlns:");
}

} // namespace

/// Takes a step off the front; nothing for whatever is less plain.
std::optional<ElementPath::Step> ElementPath::takeStep(std::string_view& path)
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
    if (step.attribute.empty() || declaresNamespace(step.attribute) || !takePrefix(path, "=") || path.empty())
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
std::optional<ElementPath::Steps> ElementPath::plainSteps(std::string_view path)
{
    Steps steps;
    do {
        const auto step = takeStep(path);
        if (!step)
            return std::nullopt;
        steps.push_back(*step);
    } while (takePrefix(path, "/"));
    return path.empty() ? std::optional(std::move(steps)) : std::nullopt;
}

ElementPath::Pointers ElementPath::select(const ADMXMLElementImp& element, std::string_view expression)
{
    const auto steps = plainSteps(expression);
    return steps ? selectByWalking(element, *steps) : selectByMirror(element, expression);
}

/// Most paths are plain ones, and walking them takes no copy of the tree.
ElementPath::Pointers ElementPath::selectByWalking(const ADMXMLElementImp& element, const Steps& steps)
{
    Pointers selected;
    walk(element, steps.front(), selected);
    for (std::size_t i = 1; i < steps.size(); ++i) {
        const auto parents = std::exchange(selected, {});
        for (const auto& parent : parents)
            walk(*parent, steps[i], selected);
    }
    return selected;
}

void ElementPath::walk(const ADMXMLElementImp& parent, const Step& step, Pointers& selected)
{
    for (auto& child : parent.allNamed(step.name)) {
        const auto* const value = child->attributes_[step.attribute].asString();
        if (!step.hasAttribute || (value && *value == step.value))
            selected.push_back(std::move(child));
    }
}

/// By an image of the element, made for this question: elements change without their parents' knowing, so that keeping
/// it would answer from what was.
ElementPath::Pointers ElementPath::selectByMirror(const ADMXMLElementImp& element, std::string_view expression)
{
    using Image = xml::Mirror::Node;
    xml::Mirror mirror;
    std::unordered_map<Image, std::shared_ptr<ADMXMLElementImp>> originals;
    const Image root = mirror.appendElement(nullptr, element.name_.view());
    std::vector<std::pair<const ADMXMLElementImp*, Image>> open{{&element, root}};
    while (!open.empty()) {
        const auto [original, image] = open.back();
        open.pop_back();
        for (const auto& [name, value] : original->attributes_)
            mirror.appendAttribute(image, name, value.string().value_or(std::string()));
        if (original->holdsText_ && original->children_.empty())
            mirror.appendText(image, original->content_.view());
        for (const auto& child : original->children_) {
            const auto* const within = child->asElement();
            if (!within) {
                mirror.appendText(image, child->content_.view());
                continue;
            }
            const Image copy = mirror.appendElement(image, within->name_.view());
            originals.emplace(copy, std::static_pointer_cast<ADMXMLElementImp>(child));
            open.emplace_back(within, copy);
        }
    }
    Pointers selected;
    for (const Image node : mirror.select(root, expression).value_or(std::vector<Image>())) {
        const auto original = originals.find(node);
        if (original != originals.end())
            selected.push_back(original->second);
        else if (node == root)
            selected.push_back(
                std::static_pointer_cast<ADMXMLElementImp>(const_cast<ADMXMLElementImp&>(element).shared_from_this()));
    }
    return selected;
}

} // namespace dmf::internal
