#pragma once

#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace dmf::internal::xml {

/// A tree that is built for asking XPath expressions of it, and for nothing else: names and texts are taken as they
/// are, and depth and size are not bounded. Reentrant.
class Mirror {
public:
    /// An element of the mirror; good as long as that is.
    using Node = void*;

    Mirror();
    ~Mirror();
    Mirror(const Mirror&) = delete;
    Mirror& operator=(const Mirror&) = delete;

    /// Appends an element; a null `parent` stands for the document.
    Node appendElement(Node parent, std::string_view name);
    void appendAttribute(Node element, std::string_view name, std::string_view value);
    void appendText(Node element, std::string_view text);

    /// The elements that the expression selects from `context`, in document order; nothing when it is malformed or
    /// selects something else than nodes.
    [[nodiscard]] std::optional<std::vector<Node>> select(Node context, std::string_view expression) const;

private:
    struct State;
    const std::unique_ptr<State> state_;
    std::string scratch_;
};

} // namespace dmf::internal::xml
