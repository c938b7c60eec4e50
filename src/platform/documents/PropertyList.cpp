#include <dmf/platform/PropertyList.h>

#include "platform/documents/PropertyListText.h"
#include "platform/documents/XmlText.h"

#include <pugixml.hpp>

#include <algorithm>
#include <array>
#include <cstring>
#include <utility>
#include <vector>

namespace dmf::PropertyList {
namespace {

using namespace internal;

/// Builds values from the tokenizer's tree, whose texts are still escaped. The first fault ends the work.
class Reader {
public:
    [[nodiscard]] const char* fault() const noexcept { return fault_; }
    [[nodiscard]] const char* faultPlace() const noexcept { return place_; }

    bool document(const pugi::xml_node& document, Value& result)
    {
        pugi::xml_node root;
        for (const auto& node : document) {
            if (node.type() == pugi::node_doctype) {
                if (xml::documentTypeDeclares(node.value()))
                    return fail(node, "a document type with declarations is refused");
            } else if (node.type() == pugi::node_element) {
                if (root)
                    return fail(node, "a second root element");
                root = node;
            } else if (!isBlank(node)) {
                return fail(node, "text outside the root element");
            }
        }
        if (!root || std::strcmp(root.name(), "plist") != 0)
            return fail(root, "the root element is not \"plist\"");
        auto elements = Elements(*this, root);
        const auto first = elements.next();
        if (!first)
            return fail(root, "no value");
        if (!value(first, result, 1))
            return false;
        if (const auto second = elements.next())
            return fail(second, "a second value");
        return fault_ == nullptr;
    }

private:
    /// The element children of a container, which holds nothing else but white space.
    class Elements {
    public:
        Elements(Reader& reader, const pugi::xml_node& container) : reader_(reader), next_(container.first_child())
        {
            if (!xml::isWhitespace(container.value()))
                reader_.fail(container, "text where a value is expected");
        }
        pugi::xml_node next()
        {
            while (next_ && next_.type() != pugi::node_element) {
                if (!isBlank(next_))
                    reader_.fail(next_, "text where a value is expected");
                next_ = next_.next_sibling();
            }
            return reader_.fault_ ? pugi::xml_node() : std::exchange(next_, next_.next_sibling());
        }

    private:
        Reader& reader_;
        pugi::xml_node next_;
    };

    using Handler = bool (Reader::*)(const pugi::xml_node&, Value&, unsigned depth);
    struct Element {
        std::string_view name;
        Handler handler;
    };
    static const std::array<Element, 9> elements_;

    static bool isBlank(const pugi::xml_node& node)
    {
        return node.type() == pugi::node_pcdata && xml::isWhitespace(node.value());
    }

    bool fail(const pugi::xml_node& node, const char* reason)
    {
        if (!fault_) {
            fault_ = reason;
            // Names and texts lie in the parsed buffer, so they tell where the fault is.
            place_ = *node.name() ? node.name() : node.value();
        }
        return false;
    }

    bool value(const pugi::xml_node& node, Value& result, unsigned depth)
    {
        if (depth > kXmlMaximumDepth)
            return fail(node, "nested too deeply");
        const std::string_view name = node.name();
        for (const auto& element : elements_) {
            if (element.name == name)
                return (this->*element.handler)(node, result, depth);
        }
        return fail(node, "unknown element");
    }

    /// All text of a leaf. It lies in the tree or in the scratch text until the next call.
    bool text(const pugi::xml_node& leaf, std::string_view& result)
    {
        const std::string_view embedded = leaf.value();
        if (!leaf.first_child() && embedded.find('&') == embedded.npos) {
            result = embedded;
            return true;
        }
        scratch_.clear();
        bool known = xml::appendDecoded(scratch_, embedded);
        for (const auto& part : leaf) {
            if (part.type() == pugi::node_element)
                return fail(part, "an element within text");
            if (part.type() == pugi::node_cdata)
                scratch_ += part.value();
            else
                known = known && xml::appendDecoded(scratch_, part.value());
        }
        result = scratch_;
        return known || fail(leaf, "unknown entity");
    }

    bool string(const pugi::xml_node& node, Value& result, unsigned)
    {
        std::string_view content;
        if (!text(node, content))
            return false;
        result = Value(content);
        return true;
    }

    template <class Parse>
    bool scalar(const pugi::xml_node& node, Value& result, Parse parse, const char* reason)
    {
        std::string_view content;
        if (!text(node, content))
            return false;
        auto parsed = parse(content);
        if (!parsed)
            return fail(node, reason);
        result = Value(*std::move(parsed));
        return true;
    }
    bool integer(const pugi::xml_node& node, Value& result, unsigned)
    {
        return scalar(node, result, plist::integerFromText, "not an integer of 64 bits");
    }
    bool real(const pugi::xml_node& node, Value& result, unsigned)
    {
        return scalar(node, result, plist::realFromText, "not a real number");
    }
    bool date(const pugi::xml_node& node, Value& result, unsigned)
    {
        return scalar(node, result, plist::dateFromText, "not a date");
    }
    bool data(const pugi::xml_node& node, Value& result, unsigned)
    {
        return scalar(node, result, plist::dataFromText, "not base64 data");
    }
    bool boolean(const pugi::xml_node& node, Value& result, unsigned)
    {
        if (node.first_child() || !xml::isWhitespace(node.value()))
            return fail(node, "content in a boolean");
        result = Value(*node.name() == 't');
        return true;
    }

    bool array(const pugi::xml_node& node, Value& result, unsigned depth)
    {
        std::vector<Value> values;
        Elements elements(*this, node);
        while (const auto element = elements.next()) {
            if (!value(element, values.emplace_back(), depth + 1))
                return false;
        }
        result = Array(std::move(values));
        return fault_ == nullptr;
    }

    bool dictionary(const pugi::xml_node& node, Value& result, unsigned depth)
    {
        std::vector<Dictionary::Entry> entries;
        Elements elements(*this, node);
        while (const auto key = elements.next()) {
            std::string_view name;
            if (std::strcmp(key.name(), "key") != 0)
                return fail(key, "a value without a key");
            if (!text(key, name))
                return false;
            auto& entry = entries.emplace_back(std::string(name), Value());
            const auto element = elements.next();
            if (!element)
                return fail(key, "a key without a value");
            if (!value(element, entry.value, depth + 1))
                return false;
        }
        result = Dictionary(std::move(entries));
        return fault_ == nullptr;
    }

    std::string scratch_;
    const char* fault_ = nullptr;
    const char* place_ = nullptr;
};

const std::array<Reader::Element, 9> Reader::elements_{{{"string", &Reader::string},
                                                        {"dict", &Reader::dictionary},
                                                        {"integer", &Reader::integer},
                                                        {"array", &Reader::array},
                                                        {"true", &Reader::boolean},
                                                        {"false", &Reader::boolean},
                                                        {"real", &Reader::real},
                                                        {"data", &Reader::data},
                                                        {"date", &Reader::date}}};

std::optional<Value> refuse(std::string* errorDescription, std::string reason)
{
    if (errorDescription)
        *errorDescription = std::move(reason);
    return std::nullopt;
}

} // namespace

std::optional<Value> parse(std::span<const std::uint8_t> bytes, std::string* errorDescription)
{
    std::string_view text(reinterpret_cast<const char*>(bytes.data()), bytes.size());
    if (text.starts_with("\xEF\xBB\xBF"))
        text.remove_prefix(3);
    xml::Scan found;
    if (const auto refusal = xml::refusal(text, found); refusal.reason)
        return refuse(errorDescription, refusal.reason);

    // White space that stands alone between two pieces of markup means nothing, and the tokenizer leaves it out; within
    // a text that comments or sections divide it counts, so the dearer way is taken when there are any.
    const auto prologue = text.substr(0, text.find("<plist"));
    const bool divided = found.sections > xml::scan(prologue).sections;
    const unsigned options = pugi::parse_cdata | pugi::parse_eol | pugi::parse_doctype | pugi::parse_fragment |
                             pugi::parse_embed_pcdata |
                             (divided ? pugi::parse_ws_pcdata : pugi::parse_ws_pcdata_single);
    // The tokenizer puts its own end mark over the last byte, so that must be one that nobody misses.
    std::string buffer;
    buffer.reserve(text.size() + 1);
    buffer.append(text).push_back('\n');
    pugi::xml_document document;
    const auto parsed = document.load_buffer_inplace(buffer.data(), buffer.size(), options, pugi::encoding_utf8);
    if (!parsed)
        return refuse(errorDescription,
                      xml::atLine(text, static_cast<std::size_t>(parsed.offset), parsed.description()));

    Reader reader;
    std::optional<Value> result(std::in_place);
    if (reader.document(document, *result))
        return result;
    const auto offset = reader.faultPlace() >= buffer.data() && reader.faultPlace() < buffer.data() + buffer.size()
                            ? static_cast<std::size_t>(reader.faultPlace() - buffer.data())
                            : 0;
    return refuse(errorDescription, xml::atLine(text, offset, reader.fault()));
}

} // namespace dmf::PropertyList
