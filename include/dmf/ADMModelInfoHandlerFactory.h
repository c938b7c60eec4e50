#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include <dmf/platform/Data.h>
#include <dmf/platform/Export.h>

class ADMModelInfoHandler;

/// Tells the formats of model files apart and makes the handler of each. Thread-safe.
class DMF_EXPORT ADMModelInfoHandlerFactory {
public:
    enum class Format : std::uint32_t { propertyList = 0, xml = 1, unknown = 2 };

    ADMModelInfoHandlerFactory() = delete;

    /// Looks at the first 200 bytes, up to a zero byte: "<plist" makes a property list, else "<?xml" an XML document.
    /// Everything else is unknown; that also catches contents that were deciphered with another key.
    [[nodiscard]] static Format infoFormatForData(const dmf::Data& data);

    /// A handler for deciphered contents of a file of `table`; empty, with a line in the log, for an unknown format.
    [[nodiscard]] static std::shared_ptr<ADMModelInfoHandler> handlerForData(const dmf::Data& data,
                                                                             const std::string& table);
};
