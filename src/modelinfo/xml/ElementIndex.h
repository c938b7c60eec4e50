#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include <dmf/ADMXMLNodeList.h>
#include <dmf/platform/Value.h>

class ADMXMLElementImp;

namespace dmf::internal {

/// Finds the child elements of one element by their identifiers; of equal ones the last that was entered. It knows
/// them by their places in the list, so that it ends when nodes are taken out of that. Thread-safe for reading.
class ElementIndex {
public:
    /// So few elements are compared one by one: most lists are short, and an index for each takes more than they do.
    static constexpr std::size_t kFew = 8;

    /// `elements` of the children are elements. The list must outlive the index.
    ElementIndex(const NodeList& children, std::size_t elements);

    /// Enters the child at that place of the list, if it is an element.
    void enter(std::size_t place);
    /// Null when there is none.
    [[nodiscard]] ADMXMLElementImp* find(std::string_view identifier) const;
    /// How many different identifiers there are.
    [[nodiscard]] std::size_t count() const noexcept { return count_; }

    /// Appends the identifier that an element of that name and with these attributes has.
    static void append(std::string& identifier, std::string_view name, const Dictionary& attributes);
    /// By what the element goes among its siblings.
    [[nodiscard]] static std::string of(const ADMXMLElementImp& element);
    [[nodiscard]] static bool goesBy(const ADMXMLElementImp& element, std::string_view identifier);

    /// The same as find and count, without an index.
    [[nodiscard]] static ADMXMLElementImp* findAmongFew(const NodeList& children, std::string_view identifier);
    [[nodiscard]] static std::size_t countAmongFew(const NodeList& children);

private:
    struct Slot {
        std::uint32_t hash = 0;
        std::uint32_t place = 0; // plus one; 0 for a free slot
    };
    /// The slot with that identifier, else the free one where it would be.
    [[nodiscard]] std::size_t slotOf(std::string_view identifier, std::uint32_t hash) const;
    [[nodiscard]] ADMXMLElementImp* at(const Slot& slot) const;
    void grow();

    const NodeList& children_;
    std::vector<Slot> slots_; // a power of two, half of them free at least
    std::size_t count_ = 0;
};

} // namespace dmf::internal
