#include "platform/documents/XmlTidy.h"

#include "platform/documents/XmlText.h"

#include <dmf/platform/Unicode.h>

#include <algorithm>
#include <vector>

namespace dmf::internal::xml {
namespace {

/// The text with everything that XML cannot carry replaced or left out.
std::string cleaned(std::string_view text)
{
    std::string result;
    result.reserve(text.size());
    while (!text.empty()) {
        const char32_t character = takeCharacter(text);
        const bool foreign = (character >= 0xDC80 && character <= 0xDCFF) || character == 0xFFFE || character == 0xFFFF;
        if (foreign)
            appendCharacter(result, 0xFFFD);
        else if (character >= 0x20 || character == '\n' || character == '\t' || character == '\r')
            appendCharacter(result, character);
    }
    return result;
}

class Tidy {
public:
    explicit Tidy(std::string_view text) : rest_(text) { result_.reserve(text.size() + text.size() / 8); }

    std::string run()
    {
        // What is nested too deeply is refused whatever follows, and looking for the start of every end would take
        // long.
        while (!rest_.empty() && open_.size() <= kXmlMaximumDepth) {
            const auto start = rest_.find('<');
            appendText(rest_.substr(0, start));
            rest_.remove_prefix(std::min(start, rest_.size()));
            if (!rest_.empty() && !markup())
                appendText(take(1)); // a "<" that begins nothing
        }
        while (!open_.empty())
            closeInnermost();
        return std::move(result_);
    }

private:
    std::string_view take(std::size_t count)
    {
        const auto taken = rest_.substr(0, count);
        rest_.remove_prefix(taken.size());
        return taken;
    }

    void skipSpace() { rest_ = rest_.substr(std::min(rest_.find_first_not_of(" \t\r\n"), rest_.size())); }

    /// A name at the front of what is left; empty when there is none.
    std::string_view takeName() { return take(nameLength(rest_)); }

    /// One piece of markup at the front; false, with nothing taken, when it is none.
    bool markup()
    {
        if (rest_.starts_with("<!--"))
            return comment();
        if (rest_.starts_with("<![CDATA[")) {
            take(9);
            const auto end = rest_.find("]]>");
            if (!open_.empty())
                appendEscaped(result_, rest_.substr(0, end));
            take(end == rest_.npos ? end : end + 3);
            return true;
        }
        if (rest_.starts_with("<?") || rest_.starts_with("<!"))
            return declaration();
        return rest_.starts_with("</") ? endTag() : startTag();
    }

    bool comment()
    {
        take(4);
        const auto end = rest_.find("-->");
        // A comment may not hold two hyphens in a row, nor end with one.
        std::string text;
        for (const char c : take(end))
            text += c == '-' && text.ends_with('-') ? std::string(" -") : std::string(1, c);
        take(3);
        result_.append("<!--").append(text).append(text.ends_with('-') ? " -->" : "-->");
        return true;
    }

    /// Instructions and document types, the declarations within one included.
    bool declaration()
    {
        int brackets = 0;
        for (char quote = 0; !rest_.empty();) {
            const char c = take(1).front();
            if (quote)
                quote = c == quote ? '\0' : quote;
            else if (brackets > 0 && (c == '"' || c == '\''))
                quote = c;
            else if (c == '[')
                ++brackets;
            else if (c == ']')
                --brackets;
            else if (c == '>' && brackets <= 0)
                break;
        }
        return true;
    }

    bool startTag()
    {
        const auto whole = rest_;
        take(1);
        const auto name = takeName();
        if (name.empty()) {
            rest_ = whole;
            return false;
        }
        result_.append("<").append(name);
        attributes();
        const bool empty = rest_.starts_with('/');
        if (empty)
            take(1);
        if (rest_.starts_with('>'))
            take(1);
        result_ += empty ? "/>" : ">";
        if (!empty)
            open_.push_back(name);
        return true;
    }

    /// Up to the end of the tag, of the input, or the start of the next tag.
    void attributes()
    {
        std::vector<std::string_view> seen;
        for (skipSpace();
             !rest_.empty() && !rest_.starts_with('>') && !rest_.starts_with('<') && !rest_.starts_with("/>");
             skipSpace()) {
            const auto name = takeName();
            if (name.empty()) {
                take(1);
                continue;
            }
            const auto value = attributeValue(name);
            // The sense of the second of two is anybody's guess; a list this long is no attribute list; a prefix
            // cannot stand for nothing.
            if (seen.size() > 64 || std::ranges::find(seen, name) != seen.end() ||
                (name.starts_with("xmlns:") && value.empty()))
                continue;
            seen.push_back(name);
            result_.append(" ").append(name).append("=\"");
            appendRepaired(value, true);
            result_ += '"';
        }
    }

    std::string_view attributeValue(std::string_view name)
    {
        skipSpace();
        if (!rest_.starts_with('='))
            return name;
        take(1);
        skipSpace();
        const char quote = rest_.empty() ? '\0' : rest_.front();
        if (quote != '"' && quote != '\'')
            return take(std::min(rest_.find_first_of(" \t\r\n><"), rest_.size()));
        take(1);
        // A quote that is never closed ends with the tag.
        auto end = rest_.find(quote);
        const bool closed = end != rest_.npos;
        if (!closed)
            end = std::min(rest_.find_first_of("<>"), rest_.size());
        const auto value = take(end);
        take(closed ? 1 : 0);
        return value;
    }

    bool endTag()
    {
        const auto whole = rest_;
        take(2);
        const auto name = takeName();
        if (name.empty()) {
            rest_ = whole;
            return false;
        }
        const auto end = rest_.find_first_of("<>");
        take(end);
        if (rest_.starts_with('>'))
            take(1);
        const auto opened = std::find(open_.rbegin(), open_.rend(), name);
        if (opened == open_.rend())
            return true;
        for (auto count = opened - open_.rbegin() + 1; count > 0; --count)
            closeInnermost();
        return true;
    }

    void closeInnermost()
    {
        result_.append("</").append(open_.back()).append(">");
        open_.pop_back();
    }

    void appendText(std::string_view text)
    {
        if (!open_.empty())
            appendRepaired(text, false);
    }

    /// Keeps references that are known and escapes everything else.
    void appendRepaired(std::string_view text, bool attribute)
    {
        for (;;) {
            const auto start = text.find('&');
            appendEscaped(result_, text.substr(0, start), attribute);
            if (start == text.npos)
                return;
            text.remove_prefix(start + 1);
            // Longer references than this stand for nothing.
            const auto end = text.substr(0, 12).find(';');
            const auto character = end == text.npos ? 0 : referencedCharacter(text.substr(0, end));
            if (character == 0) {
                result_ += "&amp;";
                continue;
            }
            result_.append("&").append(text.substr(0, end + 1));
            text.remove_prefix(end + 1);
        }
    }

    std::string_view rest_;
    std::string result_;
    std::vector<std::string_view> open_;
};

} // namespace

std::string tidied(std::string_view text)
{
    const std::string clean = cleaned(text);
    return Tidy(clean).run();
}

} // namespace dmf::internal::xml
