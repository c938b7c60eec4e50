#include <dmf/ADMXMLParser.h>
#include <dmf/ADMXMLTreeBuilder.h>
#include <dmf/platform/Class.h>
#include <dmf/platform/Unicode.h>
#include <dmf/platform/Xml.h>

#include <libxml/parser.h>
#include <libxml/parserInternals.h>

#include <algorithm>
#include <exception>
#include <iterator>
#include <memory>
#include <new>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace {

std::string_view textOf(const xmlChar* text)
{
    return text ? std::string_view(reinterpret_cast<const char*>(text)) : std::string_view();
}

/// Builds the tree from the parser's events. Everything that the document would have the parser look up stops it.
class Builder {
public:
    explicit Builder(xmlParserCtxtPtr context) : context_(context) {}

    static xmlSAXHandler handler()
    {
        xmlSAXHandler sax{};
        sax.initialized = XML_SAX2_MAGIC;
        sax.startElementNs = &startElement;
        sax.endElementNs = [](void* self, const xmlChar*, const xmlChar*, const xmlChar*) {
            guarded(self, [](Builder& builder) {
                builder.endText();
                builder.tree_.endElement();
                --builder.depth_;
            });
        };
        sax.characters = sax.cdataBlock = sax.ignorableWhitespace = [](void* self, const xmlChar* text, int length) {
            guarded(self, [&](Builder& builder) {
                builder.text_.append(reinterpret_cast<const char*>(text), static_cast<std::size_t>(length));
            });
        };
        sax.getEntity = sax.getParameterEntity = [](void* self, const xmlChar*) -> xmlEntityPtr {
            refuse(self, "unknown entity");
            return nullptr;
        };
        sax.reference = [](void* self, const xmlChar*) { refuse(self, "unknown entity"); };
        refuseDeclarations(sax);
        // With a handler of its own, nothing goes to the process's error output.
        sax.serror = [](void* self, xmlErrorPtr error) {
            if (error && error->level >= XML_ERR_ERROR)
                static_cast<Builder*>(self)->note(error->message ? error->message : "malformed", error->line);
        };
        return sax;
    }

    [[nodiscard]] bool failed() const { return fault_.has_value(); }
    [[nodiscard]] std::string fault() const { return fault_.value_or("malformed XML"); }
    [[nodiscard]] std::shared_ptr<ADMXMLElementImp> root() { return tree_.takeRoot(); }
    /// Throws what went wrong beside the document.
    void rethrow() const
    {
        if (thrown_)
            std::rethrow_exception(thrown_);
        if (context_->errNo == XML_ERR_NO_MEMORY)
            throw std::bad_alloc();
    }

private:
    /// No exception may pass through the parser, which is written in C.
    template <class Action>
    static void guarded(void* self, Action action) noexcept
    {
        auto& builder = *static_cast<Builder*>(self);
        try {
            if (!builder.failed())
                action(builder);
        } catch (...) {
            builder.thrown_ = std::current_exception();
            builder.stop("stopped");
        }
    }

    static void refuse(void* self, const char* reason) { static_cast<Builder*>(self)->stop(reason); }

    static void refuseDeclarations(xmlSAXHandler& sax)
    {
        static constexpr auto reason = "a document type with declarations is refused";
        sax.entityDecl = [](void* self, const xmlChar*, int, const xmlChar*, const xmlChar*, xmlChar*) {
            refuse(self, reason);
        };
        sax.attributeDecl = [](void* self, const xmlChar*, const xmlChar*, int, int, const xmlChar*,
                               xmlEnumerationPtr values) {
            xmlFreeEnumeration(values); // handed over with the call
            refuse(self, reason);
        };
        sax.elementDecl = [](void* self, const xmlChar*, int, xmlElementContentPtr) { refuse(self, reason); };
        sax.notationDecl = [](void* self, const xmlChar*, const xmlChar*, const xmlChar*) { refuse(self, reason); };
        sax.unparsedEntityDecl = [](void* self, const xmlChar*, const xmlChar*, const xmlChar*, const xmlChar*) {
            refuse(self, reason);
        };
    }

    void note(std::string_view reason, int line) noexcept
    {
        try {
            while (!reason.empty() && (reason.back() == '\n' || reason.back() == ' '))
                reason.remove_suffix(1);
            if (!fault_)
                fault_ = "line " + std::to_string(line) + ": " + std::string(reason);
        } catch (const std::exception&) {
            fault_.emplace();
        }
    }

    void stop(std::string_view reason) noexcept
    {
        note(reason, xmlSAX2GetLineNumber(context_));
        xmlStopParser(context_);
    }

    static void startElement(void* self, const xmlChar* name, const xmlChar* prefix, const xmlChar*, int namespaces,
                             const xmlChar** namespaceList, int attributes, int defaulted,
                             const xmlChar** attributeList)
    {
        guarded(self, [&](Builder& builder) {
            builder.names_.clear();
            builder.attributes_.clear();
            builder.names_.reserve(static_cast<std::size_t>(namespaces + attributes)); // what refers to them stays good
            for (int i = 0; i < namespaces; ++i) {
                const auto* declared = namespaceList[2 * i];
                builder.attribute(declared ? "xmlns:" + std::string(textOf(declared)) : std::string("xmlns"),
                                  textOf(namespaceList[2 * i + 1]));
            }
            // Five pointers an attribute: local name, prefix, namespace, start and end of the value.
            for (int i = 0; i < attributes - defaulted; ++i) {
                const auto** const attribute = attributeList + 5 * i;
                const auto length = static_cast<std::size_t>(attribute[4] - attribute[3]);
                builder.attribute(qualified(attribute[1], attribute[0]), textOf(attribute[3]).substr(0, length));
            }
            builder.open(qualified(prefix, name));
        });
    }

    static std::string qualified(const xmlChar* prefix, const xmlChar* name)
    {
        return prefix ? std::string(textOf(prefix)).append(":").append(textOf(name)) : std::string(textOf(name));
    }

    void attribute(std::string name, std::string_view value)
    {
        names_.push_back(std::move(name));
        attributes_.push_back({names_.back(), value});
    }

    void open(const std::string& name)
    {
        if (++depth_ > dmf::kXmlMaximumDepth)
            return stop("elements nested too deeply");
        endText();
        tree_.beginElement(name, attributes_);
    }

    void endText()
    {
        const auto isSpace = [](char c) { return c == ' ' || c == '\n' || c == '\t' || c == '\r'; };
        if (!std::ranges::all_of(text_, isSpace))
            tree_.text(text_);
        text_.clear();
    }

    xmlParserCtxtPtr context_;
    ADMXMLTreeBuilder tree_;
    std::size_t depth_ = 0;
    std::vector<std::string> names_; // of the attributes of one element
    std::vector<dmf::XmlReceiver::Attribute> attributes_;
    std::string text_; // what was read since the last tag
    std::optional<std::string> fault_;
    std::exception_ptr thrown_;
};

struct FreeContext {
    void operator()(xmlParserCtxtPtr context) const
    {
        // A parser that is stopped within a document type leaves behind what it keeps that one's declarations in.
        xmlFreeDoc(context->myDoc);
        context->myDoc = nullptr;
        xmlFreeParserCtxt(context);
    }
};

/// How many attributes the tag has that the text begins with, at most; takes the tag off the front. What is not
/// well-formed may be counted wrongly.
std::size_t takeTag(std::string_view& text)
{
    std::size_t attributes = 0;
    std::size_t at = 1;
    for (; at < text.size() && text[at] != '>'; ++at) {
        attributes += text[at] == '=' ? 1 : 0;
        if (text[at] == '"' || text[at] == '\'')
            at = std::min(text.find(text[at], at + 1), text.size() - 1);
    }
    text.remove_prefix(std::min(at, text.size()));
    return attributes;
}

/// What the parser lets pass, and what it must not be given: it compares each attribute of an element with all the
/// others before anybody is told of them. Null for nothing.
const char* tagsFault(std::string_view text)
{
    constexpr std::string_view documentType = "<!DOCTYPE";
    constexpr std::pair<std::string_view, std::string_view> others[] = {
        {"<!--", "-->"}, {"<![CDATA[", "]]>"}, {"<?", "?>"}, {"<!", ">"}, {"</", ">"}};
    for (auto start = text.find('<'); start != text.npos; start = text.find('<')) {
        text.remove_prefix(start);
        const auto other = std::ranges::find_if(others, [&](const auto& each) { return text.starts_with(each.first); });
        if (text.starts_with(documentType) && text.find_first_of(" \t\r\n", documentType.size()) != documentType.size())
            return "a malformed document type";
        if (other != std::end(others))
            text.remove_prefix(std::min(text.find(other->second, other->first.size()), text.size()));
        else if (takeTag(text) > dmf::kXmlMaximumAttributes)
            return "an element has too many attributes";
    }
    return nullptr;
}

const char* refusal(std::string_view text)
{
    if (text.size() > dmf::kXmlMaximumSize)
        return "the document is too large";
    if (static_cast<std::size_t>(std::ranges::count(text, '<')) > dmf::kXmlMaximumTags)
        return "the document has too many tags";
    if (const char* reason = tagsFault(text))
        return reason;
    // The parser would guess other encodings from zero bytes.
    return dmf::isValidUtf8(text) && text.find('\0') == text.npos ? nullptr : "the document is not UTF-8 text";
}

/// Reads documents with libxml2.
class LibXMLParser final : public ADMXMLParser {
public:
    std::shared_ptr<ADMXMLElementImp> parseData(const dmf::Data& data, std::string* errorDescription) override
    {
        std::string fault;
        auto root = parsed(data.text(), fault);
        if (!root && errorDescription)
            *errorDescription = std::move(fault);
        return root;
    }

private:
    static std::shared_ptr<ADMXMLElementImp> parsed(std::string_view text, std::string& fault)
    {
        if (const char* reason = refusal(text)) {
            fault = reason;
            return nullptr;
        }
        const std::unique_ptr<xmlParserCtxt, FreeContext> context(
            xmlCreateMemoryParserCtxt(text.data(), static_cast<int>(text.size())));
        if (!context) {
            fault = "an empty document";
            return nullptr;
        }
        Builder builder(context.get());
        *context->sax = Builder::handler();
        context->userData = &builder;
        // "Huge" lifts the parser's own limits; the size is checked above and the depth by the builder, and entities,
        // which the other limits are for, are not known at all. "No entities" has references resolved, in attributes
        // too.
        xmlCtxtUseOptions(context.get(), XML_PARSE_NONET | XML_PARSE_HUGE | XML_PARSE_IGNORE_ENC | XML_PARSE_NOENT);
        const bool wellFormed = xmlParseDocument(context.get()) == 0 && context->wellFormed && context->nsWellFormed;
        builder.rethrow();
        fault = builder.fault();
        return wellFormed && !builder.failed() ? builder.root() : nullptr;
    }
};

} // namespace

DMF_REGISTER_CLASS(ADMLibXMLParserImp)
{
    described.implements<ADMXMLParser>(
        []() -> std::shared_ptr<ADMXMLParser> { return std::make_shared<LibXMLParser>(); });
}
