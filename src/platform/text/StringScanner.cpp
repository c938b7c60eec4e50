#include "platform/text/StringScanner.h"

#include <dmf/platform/Unicode.h>

namespace dmf::internal {

std::size_t StringScanner::afterSomeBlanks() const noexcept
{
    for (std::string_view rest = remaining(); !rest.empty();) {
        const std::size_t location = text_.size() - rest.size();
        const auto byte = static_cast<std::uint8_t>(rest.front());
        if (byte < 128) {
            if (byte != ' ' && (byte < '\t' || byte > '\r'))
                return location;
            rest.remove_prefix(1);
        } else if (!CharacterSet::whitespaceAndNewlines().contains(takeCharacter(rest))) {
            return location;
        }
    }
    return text_.size();
}

} // namespace dmf::internal
