#pragma once

#include <cstddef>
#include <cstdint>

#include <dmf/ADMXMLNodeList.h>
#include <dmf/platform/Value.h>

class ADMXMLElementImp;

namespace dmf::internal {

/// Computes what an element stands for: a leaf for its text, a list for an array, a record for a dictionary. What is
/// computed is kept with each element. Values are bounded in their depth: nobody could let go of a deeper one.
class ElementValue {
public:
    /// What is kept, else what is computed now.
    [[nodiscard]] static Value of(const ADMXMLElementImp& element);

private:
    struct Kept {
        Value value;
        std::size_t height = 0; // how many values are within each other
    };
    [[nodiscard]] static SharedText leafText(const ADMXMLElementImp& element);
    [[nodiscard]] Kept kept(const ADMXMLElementImp& element, std::size_t depth);
    [[nodiscard]] Kept list(const ADMXMLElementImp& element, std::size_t depth);
    [[nodiscard]] Kept record(const ADMXMLElementImp& element, std::size_t depth);
    [[nodiscard]] Kept within(const ADMXMLElementImp& element, std::size_t depth, std::size_t& height);

    bool isTooDeep_ = false;
};

} // namespace dmf::internal
