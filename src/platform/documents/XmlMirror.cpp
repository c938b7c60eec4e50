#include "platform/documents/XmlMirror.h"

#include <pugixml.hpp>

#include <new>

namespace dmf::internal::xml {

struct Mirror::State {
    pugi::xml_document document;

    static pugi::xml_node tree(Node node) { return pugi::xml_node(static_cast<pugi::xml_node_struct*>(node)); }
    template <class Made>
    static Made wanted(Made made)
    {
        if (!made) // memory is all that it can lack
            throw std::bad_alloc();
        return made;
    }
};

Mirror::Mirror() : state_(std::make_unique<State>()) {}

Mirror::~Mirror() = default;

Mirror::Node Mirror::appendElement(Node parent, std::string_view name)
{
    scratch_ = name;
    pugi::xml_node node = parent ? State::tree(parent) : state_->document;
    node = State::wanted(node.append_child(pugi::node_element));
    State::wanted(node.set_name(scratch_.c_str()));
    return node.internal_object();
}

void Mirror::appendAttribute(Node element, std::string_view name, std::string_view value)
{
    scratch_ = name;
    auto attribute = State::wanted(State::tree(element).append_attribute(scratch_.c_str()));
    scratch_ = value;
    State::wanted(attribute.set_value(scratch_.c_str()));
}

void Mirror::appendText(Node element, std::string_view text)
{
    scratch_ = text;
    auto node = State::wanted(State::tree(element).append_child(pugi::node_pcdata));
    State::wanted(node.set_value(scratch_.c_str()));
}

std::optional<std::vector<Mirror::Node>> Mirror::select(Node context, std::string_view expression) const
{
    std::vector<Node> selected;
    try {
        const pugi::xpath_query query(std::string(expression).c_str());
        if (query.return_type() != pugi::xpath_type_node_set)
            return std::nullopt;
        auto nodes = query.evaluate_node_set(State::tree(context));
        nodes.sort();
        for (const auto& found : nodes) {
            if (found.node().type() == pugi::node_element)
                selected.push_back(found.node().internal_object());
        }
    } catch (const pugi::xpath_exception&) {
        return std::nullopt;
    }
    return selected;
}

} // namespace dmf::internal::xml
