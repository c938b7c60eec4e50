#include <dmf/platform/PropertyList.h>

#include "platform/documents/PropertyListText.h"
#include "platform/documents/XmlText.h"

namespace dmf::PropertyList {
namespace {

using namespace internal;

constexpr std::string_view head = R"(<?xml version="1.0" encoding="UTF-8"?>
<plist version="1.0">
)";

class Writer {
public:
    std::string xml{head};
    const char* fault = nullptr;

    bool value(const Value& value, unsigned depth)
    {
        if (depth > kXmlMaximumDepth)
            return fail("nested too deeply");
        switch (value.kind()) {
        case Value::Kind::boolean: return line(depth, *value.asBool() ? "<true/>" : "<false/>");
        case Value::Kind::number: return number(*value.asNumber(), depth);
        case Value::Kind::string: return text(*value.asString(), "string", depth);
        case Value::Kind::data: return data(*value.asData(), depth);
        case Value::Kind::date: return date(*value.asDate(), depth);
        case Value::Kind::array: return array(*value.asArray(), depth);
        case Value::Kind::dictionary: return dictionary(*value.asDictionary(), depth);
        case Value::Kind::null: return fail("a null value");
        case Value::Kind::object: break;
        }
        return fail("an object of the program");
    }

private:
    bool fail(const char* reason)
    {
        fault = reason;
        return false;
    }

    bool line(unsigned depth, std::string_view content)
    {
        xml.append(depth - 1, '\t').append(content) += '\n';
        return true;
    }

    bool element(std::string_view name, std::string_view content, unsigned depth)
    {
        xml.append(depth - 1, '\t').append("<").append(name).append(">");
        xml::appendEscaped(xml, content);
        xml.append("</").append(name).append(">\n");
        return true;
    }

    bool text(std::string_view content, std::string_view name, unsigned depth)
    {
        return xml::isCharacterData(content) ? element(name, content, depth) : fail("text that XML cannot carry");
    }

    bool number(const Number& number, unsigned depth)
    {
        return element(number.kind() == Number::Kind::real ? "real" : "integer", number.description(), depth);
    }

    bool date(Date date, unsigned depth)
    {
        const auto content = plist::textFromDate(date);
        return content ? element("date", *content, depth) : fail("a date beyond the calendar");
    }

    bool data(const Data& data, unsigned depth)
    {
        xml.append(depth - 1, '\t').append("<data>");
        plist::appendBase64(xml, data);
        xml += "</data>\n";
        return true;
    }

    bool array(const Array& array, unsigned depth)
    {
        if (array.empty())
            return line(depth, "<array/>");
        line(depth, "<array>");
        for (const auto& item : array) {
            if (!value(item, depth + 1))
                return false;
        }
        return line(depth, "</array>");
    }

    bool dictionary(const Dictionary& dictionary, unsigned depth)
    {
        if (dictionary.empty())
            return line(depth, "<dict/>");
        line(depth, "<dict>");
        for (const auto& [key, item] : dictionary) {
            if (!text(key, "key", depth + 1) || !value(item, depth + 1))
                return false;
        }
        return line(depth, "</dict>");
    }
};

} // namespace

std::optional<Data> serialize(const Value& value, std::string* errorDescription)
{
    Writer writer;
    if (writer.value(value, 1)) {
        writer.xml += "</plist>\n";
        return Data::fromText(writer.xml);
    }
    if (errorDescription)
        *errorDescription = writer.fault;
    return std::nullopt;
}

} // namespace dmf::PropertyList
