#include "modelinfo/xml/ElementText.h"

#include <dmf/ADMXMLElementImp.h>

#include "platform/documents/XmlText.h"

#include <vector>

namespace dmf::internal {

bool ElementText::begin(std::string& text, const ADMXMLElementImp& element)
{
    text.append("<").append(element.name_.view());
    for (const auto& [attribute, value] : element.attributes_) {
        text.append(" ").append(attribute).append("=\"");
        if (const auto* const string = value.asString())
            xml::appendEscaped(text, *string, true);
        text += '"';
    }
    const bool hasChildren = !element.children_.empty();
    if (!hasChildren && !element.holdsText_) {
        text += "/>";
        return false;
    }
    text += '>';
    if (hasChildren)
        return true;
    xml::appendEscaped(text, element.content_.view());
    end(text, element);
    return false;
}

void ElementText::end(std::string& text, const ADMXMLElementImp& element)
{
    text.append("</").append(element.name_.view()).append(">");
}

std::string ElementText::of(const ADMXMLElementImp& element)
{
    struct Open {
        const ADMXMLElementImp* element;
        std::size_t next = 0; // child
    };
    std::string text;
    std::vector<Open> open;
    if (begin(text, element))
        open.push_back({&element});
    while (!open.empty()) {
        Open& innermost = open.back();
        const NodeList& children = innermost.element->children_;
        if (innermost.next == children.size()) {
            end(text, *innermost.element);
            open.pop_back();
            continue;
        }
        const auto& child = children[innermost.next++];
        if (const auto* const within = child->asElement()) {
            if (begin(text, *within))
                open.push_back({within});
        } else {
            xml::appendEscaped(text, child->content_.view());
        }
    }
    return text;
}

} // namespace dmf::internal
