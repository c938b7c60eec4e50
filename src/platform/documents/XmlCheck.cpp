#include "platform/documents/XmlTree.h"

#include "platform/documents/XmlGrammar.h"
#include "platform/documents/XmlText.h"

#include <dmf/platform/Unicode.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <utility>
#include <vector>

namespace dmf::internal::xml {
namespace {

/// Walks a tree once, without recursion: its depth is not known to be bounded before. What it finds in order goes to
/// the receiver, where there is one; otherwise the references in the tree are resolved.
class Check {
public:
    Check(std::string_view text, std::string_view buffer, XmlReceiver* receiver)
        : text_(text), buffer_(buffer), receiver_(receiver), mayHoldSectionEnds_(text.find(kSectionEnd) != text.npos)
    {
    }

    std::optional<Fault> run(pugi::xml_document& document)
    {
        const pugi::xml_node root = outline(document);
        std::size_t depth = 0;
        for (pugi::xml_node node = root; node && !fault_; node = next(node, root, depth)) {
            if (node.type() == pugi::node_element)
                element(node, ++depth);
            else
                content(node);
        }
        // Nothing refers to them; taking them out earlier would end the walk.
        for (pugi::xml_node& instruction : instructions_)
            instruction.parent().remove_child(instruction);
        return std::move(fault_);
    }

private:
    void fail(const char* place, std::string reason, XmlErrorCode code = XmlErrorCode::malformed)
    {
        if (fault_)
            return;
        // Names and values lie in the buffer until they are replaced, so they tell where the fault is.
        const bool known = place >= buffer_.data() && place < buffer_.data() + buffer_.size();
        const auto offset = known ? static_cast<std::size_t>(place - buffer_.data()) : 0;
        fault_ = Fault{code, atLine(text_, offset, reason)};
    }

    /// Checks what stands outside the root, takes out what is not kept of it, and hands back the root.
    pugi::xml_node outline(pugi::xml_document& document)
    {
        pugi::xml_node root;
        pugi::xml_node following;
        for (pugi::xml_node node = document.first_child(); node; node = following) {
            following = node.next_sibling();
            if (node.type() == pugi::node_element) {
                if (root)
                    fail(node.name(), "a second root element");
                root = node;
                continue;
            }
            if (node.type() == pugi::node_comment) {
                comment(node);
                continue;
            }
            if (node.type() == pugi::node_declaration)
                declaration(node);
            else if (node.type() == pugi::node_pi)
                instruction(node);
            else if (node.type() == pugi::node_doctype)
                documentType(node, bool(root));
            else if (node.type() == pugi::node_cdata ||
                     (node.type() == pugi::node_pcdata && !isWhitespace(node.value())))
                fail(node.value(), "text outside the root element");
            document.remove_child(node);
        }
        if (!root)
            fail(nullptr, "no root element");
        return root;
    }

    void declaration(const pugi::xml_node& node)
    {
        if (!text_.starts_with("<?xml") || node.previous_sibling())
            fail(node.name(), "an XML declaration that is not at the start");
        constexpr std::string_view start = "<?xml";
        const auto content = text_.substr(0, text_.find("?>"));
        if (content.size() < start.size() || !isDeclaration(content.substr(start.size())))
            fail(node.name(), "a malformed XML declaration");
        const std::string encoding = lowercased(node.attribute("encoding").value());
        constexpr std::array<std::string_view, 5> harmless{"", "utf-8", "utf8", "us-ascii", "ascii"};
        const auto isAscii = [](char c) { return static_cast<unsigned char>(c) < 0x80; };
        if (std::ranges::find(harmless, encoding) == harmless.end() && !std::ranges::all_of(text_, isAscii))
            fail(node.name(), "an encoding other than UTF-8", XmlErrorCode::encoding);
    }

    void documentType(const pugi::xml_node& node, bool isAfterRoot)
    {
        if (isAfterRoot)
            return fail(node.value(), "a document type after the root element");
        if (std::exchange(hasDocumentType_, true))
            return fail(node.value(), "a second document type");
        if (documentTypeDeclares(node.value()))
            return fail(node.value(), "a document type with declarations is refused", XmlErrorCode::entity);
        // The tokenizer left the white space before it out, which must be there.
        const std::string_view content = node.value();
        if (content.data() == buffer_.data() || !isDocumentType(std::string(1, content.data()[-1]).append(content)))
            fail(content.data(), "a malformed document type");
    }

    void instruction(const pugi::xml_node& node)
    {
        if (!isInstructionTarget(node.name()))
            fail(node.name(), "a malformed processing instruction");
    }

    /// Steps on in document order and closes what ends on the way.
    pugi::xml_node next(pugi::xml_node node, const pugi::xml_node& root, std::size_t& depth)
    {
        if (node.first_child())
            return node.first_child();
        for (;; node = node.parent()) {
            if (node.type() == pugi::node_element) {
                if (receiver_ && !fault_)
                    endReceived();
                --depth;
                while (!prefixes_.empty() && prefixes_.back().depth > depth)
                    prefixes_.pop_back();
            }
            if (node == root)
                return {};
            if (node.next_sibling())
                return node.next_sibling();
        }
    }

    void element(const pugi::xml_node& node, std::size_t depth)
    {
        if (depth > kXmlMaximumDepth)
            return fail(node.name(), "elements nested too deeply", XmlErrorCode::tooDeep);
        names_.clear();
        for (auto attribute = node.first_attribute(); attribute; attribute = attribute.next_attribute()) {
            names_.push_back(attribute.name());
            value(attribute);
            declareNamespace(attribute, depth);
        }
        if (names_.size() > kXmlMaximumAttributes)
            return fail(node.name(), "too many attributes", XmlErrorCode::tooLarge);
        if (names_.size() > 1)
            noneTwice(node);
        name(node.name());
        expanded_.clear();
        for (const auto attribute : names_)
            name(attribute, true);
        if (expanded_.size() > 1)
            noneTwiceInANamespace(node);
        if (receiver_ && !fault_)
            beginReceived(node);
    }

    void noneTwice(const pugi::xml_node& node)
    {
        std::ranges::sort(names_);
        if (std::ranges::adjacent_find(names_) != names_.end())
            fail(node.name(), "an attribute given twice");
    }

    void noneTwiceInANamespace(const pugi::xml_node& node)
    {
        std::ranges::sort(expanded_);
        if (std::ranges::adjacent_find(expanded_) != expanded_.end())
            fail(node.name(), "an attribute given twice in one namespace");
    }

    void declareNamespace(const pugi::xml_attribute& attribute, std::size_t depth)
    {
        const std::string_view name = attribute.name();
        const bool isPrefix = name.starts_with("xmlns:");
        if (!isPrefix && name != "xmlns")
            return;
        if (const char* const reason =
                namespaceFault(isPrefix ? name.substr(6) : std::string_view(), attribute.value()))
            fail(attribute.name(), reason);
        if (!isPrefix)
            return;
        // Every name looks through them, so that their number bounds the time.
        if (prefixes_.size() >= 256)
            fail(attribute.name(), "too many namespace prefixes", XmlErrorCode::tooLarge);
        prefixes_.push_back({name.substr(6), attribute.value(), depth});
    }

    void name(std::string_view name, bool isAttribute = false)
    {
        const auto colon = name.find(':');
        if (colon == name.npos)
            return;
        if (!isName(name))
            return fail(name.data(), "a malformed name");
        const auto prefix = name.substr(0, colon);
        if (prefix == "xml" || (prefix == "xmlns" && isAttribute))
            return;
        const auto innermost = std::ranges::find(prefixes_.rbegin(), prefixes_.rend(), prefix, &Prefix::name);
        if (innermost == prefixes_.rend())
            fail(name.data(), "an undeclared namespace prefix");
        else if (isAttribute)
            expanded_.emplace_back(innermost->space, name.substr(colon + 1));
    }

    void value(pugi::xml_attribute& attribute)
    {
        if (std::strchr(attribute.value(), '<'))
            return fail(attribute.value(), "a tag within an attribute");
        decode(attribute);
    }

    void content(pugi::xml_node& node)
    {
        if (node.type() == pugi::node_comment)
            return comment(node);
        if (node.type() == pugi::node_pi) {
            instruction(node);
            if (!receiver_)
                instructions_.push_back(node);
            return;
        }
        if (node.type() == pugi::node_cdata) {
            if (receiver_)
                run_ += node.value();
        } else if (receiver_) {
            received(node.value());
        } else {
            sectionEnd(node.value());
            decode(node);
        }
    }

    void sectionEnd(const char* text)
    {
        if (mayHoldSectionEnds_ && std::strstr(text, kSectionEnd))
            fail(text, "\"]]>\" in text");
    }

    void received(const char* text)
    {
        sectionEnd(text);
        if (!appendDecoded(run_, text))
            fail(text, "an unknown entity", XmlErrorCode::entity);
    }

    void beginReceived(const pugi::xml_node& node)
    {
        endRun();
        attributes_.clear();
        for (auto attribute = node.first_attribute(); attribute; attribute = attribute.next_attribute())
            attributes_.push_back({attribute.name(), attribute.value()});
        receiver_->beginElement(node.name(), attributes_);
        if (*node.value()) // a text that stands first lies in the element itself
            received(node.value());
    }

    void endReceived()
    {
        endRun();
        receiver_->endElement();
    }

    void endRun()
    {
        if (run_.empty())
            return;
        if (!isWhitespace(run_))
            receiver_->text(run_);
        run_.clear();
    }

    void comment(const pugi::xml_node& node)
    {
        const std::string_view text = node.value();
        if (text.find("--") != text.npos || text.ends_with('-'))
            fail(text.data(), "\"--\" in a comment");
    }

    template <class Holder>
    void decode(Holder& holder)
    {
        if (!std::strchr(holder.value(), '&'))
            return;
        scratch_.clear();
        if (!appendDecoded(scratch_, holder.value()))
            return fail(holder.value(), "an unknown entity", XmlErrorCode::entity);
        holder.set_value(scratch_.c_str());
    }

    struct Prefix {
        std::string_view name;
        std::string_view space; // what it stands for
        std::size_t depth;
    };
    static constexpr const char* kSectionEnd = "]]>";

    std::string_view text_;
    std::string_view buffer_;
    XmlReceiver* const receiver_; // null: the tree is kept
    const bool mayHoldSectionEnds_;
    std::vector<Prefix> prefixes_;                                        // those in force where the walk stands
    std::vector<std::string_view> names_;                                 // of the attributes of one element
    std::vector<std::pair<std::string_view, std::string_view>> expanded_; // those in namespaces, with these
    std::vector<pugi::xml_node> instructions_;                            // of a tree that is kept
    bool hasDocumentType_ = false;
    std::vector<XmlReceiver::Attribute> attributes_;
    std::string run_; // the text since the last tag, for the receiver
    std::string scratch_;
    std::optional<Fault> fault_;
};

} // namespace

Error errorOf(const Fault& fault)
{
    return Error(std::string(kXmlErrorDomain), static_cast<int>(fault.code), {{"DMErrorDescription", fault.reason}});
}

std::optional<Fault> checkTree(pugi::xml_document& document, std::string_view text, std::string_view buffer)
{
    return Check(text, buffer, nullptr).run(document);
}

std::optional<Fault> handOver(pugi::xml_document& document, std::string_view text, std::string_view buffer,
                              XmlReceiver& receiver)
{
    return Check(text, buffer, &receiver).run(document);
}

} // namespace dmf::internal::xml
