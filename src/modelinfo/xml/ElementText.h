#pragma once

#include <string>

class ADMXMLElementImp;

namespace dmf::internal {

/// Writes elements as XML text, whatever their depth.
class ElementText {
public:
    [[nodiscard]] static std::string of(const ADMXMLElementImp& element);

private:
    /// The start tag with its attributes, and all of it where nothing is to follow within; false then.
    static bool begin(std::string& text, const ADMXMLElementImp& element);
    static void end(std::string& text, const ADMXMLElementImp& element);
};

} // namespace dmf::internal
