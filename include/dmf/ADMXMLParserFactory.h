#pragma once

#include <memory>
#include <string_view>

#include <dmf/ADMXMLParser.h>
#include <dmf/platform/Export.h>

/// Makes XML parsers, which are plug-ins in the library's own plug-in folder. Thread-safe.
class DMF_EXPORT ADMXMLParserFactory {
public:
    /// The one factory of the process.
    [[nodiscard]] static ADMXMLParserFactory& defaultFactory();

    /// A new parser of the named class, or empty when no plug-in has it. Loads the plug-in when it has to.
    [[nodiscard]] std::shared_ptr<ADMXMLParser> parserNamed(std::string_view className) const;

    [[nodiscard]] std::shared_ptr<ADMXMLParser> NSXMLParser() const;
    [[nodiscard]] std::shared_ptr<ADMXMLParser> CFXMLParser() const;
    [[nodiscard]] std::shared_ptr<ADMXMLParser> libXMLParser() const;
    /// libXMLParser on systems before 10.6, otherwise NSXMLParser.
    [[nodiscard]] std::shared_ptr<ADMXMLParser> defaultParser() const;

private:
    ADMXMLParserFactory() = default;
    ~ADMXMLParserFactory() = delete; // lives as long as the process
};
