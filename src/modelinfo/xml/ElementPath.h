#pragma once

#include <memory>
#include <optional>
#include <string_view>
#include <vector>

#include <dmf/ADMXMLElementImp.h>

namespace dmf::internal {

/// Finds the elements that an XPath expression selects from an element, which is the root of the document to it.
class ElementPath {
public:
    using Pointers = std::vector<std::shared_ptr<ADMXMLElementImp>>;

    [[nodiscard]] static Pointers select(const ADMXMLElementImp& element, std::string_view expression);

private:
    /// One step of a plain path: a child's name, perhaps with the value of one attribute: domain[@name="web"].
    struct Step {
        std::string_view name;
        std::string_view attribute;
        std::string_view value;
        bool hasAttribute = false;
    };
    using Steps = std::vector<Step>;

    [[nodiscard]] static std::optional<Step> takeStep(std::string_view& path);
    [[nodiscard]] static std::optional<Steps> plainSteps(std::string_view path);
    [[nodiscard]] static Pointers selectByWalking(const ADMXMLElementImp& element, const Steps& steps);
    static void walk(const ADMXMLElementImp& parent, const Step& step, Pointers& selected);
    [[nodiscard]] static Pointers selectByMirror(const ADMXMLElementImp& element, std::string_view expression);
};

} // namespace dmf::internal
