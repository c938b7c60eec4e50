#pragma once

#include <functional>
#include <memory>

#include <dmf/ADMXMLParser.h>
#include <dmf/platform/Class.h>

#include "support/HostFixture.h"

/// Has the library read XML by a parser of the test's own, which does what `action` does, as long as this object lives.
class ForeignParser {
public:
    using Action = std::function<std::shared_ptr<ADMXMLElementImp>(const dmf::Data&)>;

    ForeignParser(HostFixture& machine, Action does)
    {
        machine.setSystemVersion(0x1058); // on which the parser is another one than the tests' usual
        action() = std::move(does);
        // Stays for the process: the library keeps a parser's class.
        static const bool isAdded = [] {
            static const char anchor = 0;
            auto added = std::make_shared<dmf::Class>("ADMLibXMLParserImp", &anchor);
            added->implements<ADMXMLParser>(
                []() -> std::shared_ptr<ADMXMLParser> { return std::make_shared<Parser>(); });
            return dmf::ClassRegistry::shared().add(added);
        }();
        EXPECT_TRUE(isAdded);
    }
    ~ForeignParser() { action() = nullptr; }
    ForeignParser(const ForeignParser&) = delete;
    ForeignParser& operator=(const ForeignParser&) = delete;

private:
    static Action& action()
    {
        static Action it;
        return it;
    }
    struct Parser final : ADMXMLParser {
        std::shared_ptr<ADMXMLElementImp> parseData(const dmf::Data& data, std::string*) override
        {
            return action()(data);
        }
    };
};
