#pragma once

#include <cstddef>
#include <deque>
#include <memory>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include <dmf/ADMXMLNode.h>
#include <dmf/platform/Value.h>

namespace dmf::internal {

/// Whether the element keeps out whatever it would inherit.
[[nodiscard]] bool overrides(const ADMXMLElement& element);

/// Brings what elements of a parent file have into one element of the child file, in time that is linear in both.
///
/// The merge knows the element's children by their identifiers and attributes. Nodes that it takes over stay shared
/// with the parent's tree, which other threads read: what is to be merged into one of them is merged into a copy, which
/// takes its place when the merge is finished. Used by one thread, which owns the element's tree.
class XmlMerge {
public:
    /// `element` must outlive the merge; `depth` is how many merges this one is within.
    explicit XmlMerge(ADMXMLElement& element, std::size_t depth = 0);
    ~XmlMerge();
    XmlMerge(const XmlMerge&) = delete;
    XmlMerge& operator=(const XmlMerge&) = delete;

    /// A record merges with a record. Nothing happens where the element overrides.
    void take(const ADMXMLElement& source);
    /// Puts the copies in their places, here and in everything below. The merge is over with it.
    void finish();

private:
    struct Child {
        std::shared_ptr<ADMXMLElement> element;
        bool isShared = false;           // with the parent's tree
        std::unique_ptr<XmlMerge> merge; // into this child, if there was any
    };
    using Places = std::vector<std::size_t>;

    [[nodiscard]] Child* find(const ADMXMLElement& inherited);
    [[nodiscard]] Child* firstWith(std::string_view name, const Dictionary& attributes);
    [[nodiscard]] const Places* fewestWith(std::string_view name, const Dictionary& attributes);
    void mergeInto(Child& found, const ADMXMLElement& inherited);
    void takeItems(const ADMXMLElement& source);
    void append(const std::shared_ptr<ADMXMLNode>& node);
    void enter(std::shared_ptr<ADMXMLElement> child, bool isShared);
    void enterAttributes(std::size_t place);
    void replaceCopied();

    ADMXMLElement& element_;
    const std::size_t depth_;
    const bool overrides_;
    std::deque<Child> children_;                             // the element children in their order; places stay good
    std::unordered_map<std::string, std::size_t> last_;      // by identifier the last that has it
    std::unordered_map<std::string, Places> having_;         // by name, and by name with one attribute
    bool plain_ = true;                                      // the attributes that `having_` knows are all texts
    std::size_t entered_ = 0;                                // how many children `having_` knows
    std::unordered_map<const ADMXMLNode*, Child*> replaced_; // originals whose copy takes their place
};

} // namespace dmf::internal
