#include "platform/documents/XmlGrammar.h"

#include "platform/documents/XmlText.h"

#include <algorithm>
#include <optional>
#include <utility>

namespace dmf::internal::xml {
namespace {

constexpr std::string_view kXmlNamespace = "http://www.w3.org/XML/1998/namespace";
constexpr std::string_view kDeclarationsNamespace = "http://www.w3.org/2000/xmlns/";

constexpr bool isLetter(char c) noexcept
{
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
}
constexpr bool isDigit(char c) noexcept
{
    return c >= '0' && c <= '9';
}
constexpr bool isHexadecimal(char c) noexcept
{
    return isDigit(c) || (c >= 'a' && c <= 'f') || (c >= 'A' && c <= 'F');
}

/// Takes its parts off the front of a text.
class Front {
public:
    explicit Front(std::string_view text) noexcept : rest_(text) {}

    [[nodiscard]] bool isAtEnd() const noexcept { return rest_.empty(); }
    bool space() noexcept
    {
        const auto length = std::min(rest_.find_first_not_of(" \t\r\n"), rest_.size());
        rest_.remove_prefix(length);
        return length > 0;
    }
    bool word(std::string_view word) noexcept
    {
        const bool is = rest_.starts_with(word);
        rest_.remove_prefix(is ? word.size() : 0);
        return is;
    }
    bool name() noexcept
    {
        const auto length = nameLength(rest_);
        rest_.remove_prefix(length);
        return length > 0;
    }
    std::optional<std::string_view> quoted() noexcept
    {
        const char quote = rest_.empty() ? '\0' : rest_.front();
        const auto end = rest_.find(quote, 1);
        if ((quote != '"' && quote != '\'') || end == rest_.npos)
            return std::nullopt;
        const auto value = rest_.substr(1, end - 1);
        rest_.remove_prefix(end + 1);
        return value;
    }
    /// `name = "value"`, after white space.
    std::optional<std::string_view> pseudoAttribute(std::string_view name) noexcept
    {
        const Front before = *this;
        if (space() && word(name)) {
            space();
            if (word("=")) {
                space();
                if (const auto value = quoted())
                    return value;
            }
        }
        *this = before;
        return std::nullopt;
    }

private:
    std::string_view rest_;
};

bool isVersion(std::string_view text) noexcept
{
    return text.size() > 2 && text.starts_with("1.") && std::ranges::all_of(text.substr(2), isDigit);
}

bool isEncoding(std::string_view text) noexcept
{
    return !text.empty() && isLetter(text.front()) && std::ranges::all_of(text, [](char c) {
        return isLetter(c) || isDigit(c) || c == '.' || c == '_' || c == '-';
    });
}

bool isPublicIdentifier(std::string_view text) noexcept
{
    constexpr std::string_view others = " \r\n-'()+,./:=?;!*#@$_%";
    return std::ranges::all_of(text,
                               [&](char c) { return isLetter(c) || isDigit(c) || others.find(c) != others.npos; });
}

/// Whether the text is made as URIs and references to them are.
bool isUriReference(std::string_view text) noexcept
{
    constexpr std::string_view others = "-._~:/?@!$&'()*+,;=[]";
    bool isFragment = false;
    for (std::size_t i = 0; i < text.size(); ++i) {
        const char c = text[i];
        if (c == '%') {
            if (text.size() - i < 3 || !isHexadecimal(text[i + 1]) || !isHexadecimal(text[i + 2]))
                return false;
        } else if (c == '#') {
            if (std::exchange(isFragment, true))
                return false;
        } else if (!isLetter(c) && !isDigit(c) && others.find(c) == others.npos) {
            return false;
        }
    }
    // What stands before the first colon is a scheme.
    const auto colon = text.find_first_of(":/?#");
    return colon == text.npos || text[colon] != ':' || (colon > 0 && isLetter(text.front()));
}

} // namespace

bool isDeclaration(std::string_view content) noexcept
{
    Front front(content);
    const auto version = front.pseudoAttribute("version");
    if (!version || !isVersion(*version))
        return false;
    const auto encoding = front.pseudoAttribute("encoding");
    const auto standalone = front.pseudoAttribute("standalone");
    front.space();
    return front.isAtEnd() && (!encoding || isEncoding(*encoding)) &&
           (!standalone || *standalone == "yes" || *standalone == "no");
}

bool isDocumentType(std::string_view content) noexcept
{
    Front front(content);
    if (!front.space() || !front.name())
        return false;
    if (front.space()) {
        const bool isPublic = front.word("PUBLIC");
        if (isPublic) {
            const auto identifier = front.space() ? front.quoted() : std::nullopt;
            if (!identifier || !isPublicIdentifier(*identifier))
                return false;
        }
        if ((isPublic || front.word("SYSTEM")) && (!front.space() || !front.quoted()))
            return false;
        front.space();
    }
    return front.isAtEnd();
}

bool isInstructionTarget(std::string_view target) noexcept
{
    const auto isFolded = [](char letter, char c) { return letter == (c | 0x20); };
    return isName(target) && target.find(':') == target.npos &&
           !std::ranges::equal(std::string_view("xml"), target, isFolded);
}

const char* namespaceFault(std::string_view prefix, std::string_view name) noexcept
{
    if (prefix == "xmlns" || name == kDeclarationsNamespace || (prefix == "xml") != (name == kXmlNamespace))
        return "a reserved namespace or prefix";
    if (name.empty() && !prefix.empty())
        return "a namespace prefix without a namespace";
    return isUriReference(name) ? nullptr : "a namespace that is no URI";
}

} // namespace dmf::internal::xml
