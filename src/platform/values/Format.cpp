#include <dmf/platform/Format.h>

#include <dmf/platform/Unicode.h>

#include <algorithm>
#include <charconv>
#include <limits>

namespace dmf {
namespace internal {
namespace {

/// Widths and precisions end here, so that a wrong argument cannot ask for gigabytes.
constexpr std::size_t kLongestField = 4096;
/// Room for any integer in any base used here, and for the shortest form of any real.
constexpr std::size_t kLongestNumber = 32;

std::size_t characterCount(std::string_view text) noexcept
{
    return static_cast<std::size_t>(
        std::ranges::count_if(text, [](char c) { return (static_cast<std::uint8_t>(c) & 0xC0) != 0x80; }));
}

std::string_view firstCharacters(std::string_view text, std::size_t count) noexcept
{
    std::string_view rest = text;
    for (; count > 0 && !rest.empty(); --count)
        (void)takeCharacter(rest);
    return text.substr(0, text.size() - rest.size());
}

void makeUpper(std::string& ascii) noexcept
{
    for (char& c : ascii)
        if (c >= 'a' && c <= 'z')
            c = static_cast<char>(c - 32);
}

} // namespace

class Formatter {
public:
    Formatter(std::string_view format, std::span<const FormatArgument> arguments) noexcept
        : rest_(format), arguments_(arguments)
    {
    }
    std::string run();

private:
    using Kind = FormatArgument::Kind;
    struct Placeholder {
        bool left = false, zero = false, plus = false, blank = false, alternate = false;
        std::size_t width = 0;
        std::optional<std::size_t> precision;
        char conversion = 0;
    };

    bool takePlaceholder(Placeholder& to);
    void takeFlags(Placeholder& to) noexcept;
    bool takeStar() noexcept;
    std::size_t takeNumber() noexcept;
    std::int64_t starArgument() noexcept;
    static std::optional<std::uint64_t> integerBits(const FormatArgument& argument) noexcept;
    const FormatArgument& nextArgument() noexcept;

    void put(const Placeholder& how);
    bool putInteger(const Placeholder& how, const FormatArgument& argument);
    bool putReal(const Placeholder& how, const FormatArgument& argument);
    bool putCharacter(const FormatArgument& argument);
    void putText(const FormatArgument& argument);
    void putNumber(const Placeholder& how, std::string_view prefix, std::string_view number, bool mayPadWithZeros);
    template <class T, class... How>
    void putDigits(T value, How... how);

    std::string_view rest_;
    std::span<const FormatArgument> arguments_;
    std::string result_;
};

std::string Formatter::run()
{
    result_.reserve(rest_.size() + 64);
    while (!rest_.empty()) {
        const std::size_t percent = rest_.find('%');
        result_ += rest_.substr(0, percent);
        if (percent == std::string_view::npos)
            break;
        rest_.remove_prefix(percent);
        // Nearly all placeholders are these, without flags or widths, and show their argument as plain text.
        if (rest_.size() > 1 && (rest_[1] == '@' || rest_[1] == 'd' || rest_[1] == 's' || rest_[1] == 'i')) {
            rest_.remove_prefix(2);
            putText(nextArgument());
            continue;
        }
        const std::string_view start = rest_;
        Placeholder placeholder;
        if (takePlaceholder(placeholder))
            put(placeholder);
        else
            result_ += start.substr(0, start.size() - rest_.size());
    }
    return std::move(result_);
}

/// False when the text taken is no placeholder; it then stands for itself.
bool Formatter::takePlaceholder(Placeholder& to)
{
    rest_.remove_prefix(1);
    takeFlags(to);
    if (takeStar()) {
        const std::int64_t width = starArgument();
        to.left = to.left || width < 0;
        to.width = static_cast<std::size_t>(width < 0 ? -width : width);
    } else {
        to.width = takeNumber();
    }
    if (rest_.starts_with('.')) {
        rest_.remove_prefix(1);
        if (!takeStar())
            to.precision = takeNumber();
        else if (const std::int64_t precision = starArgument(); precision >= 0)
            to.precision = static_cast<std::size_t>(precision);
    }
    rest_.remove_prefix(std::min(rest_.find_first_not_of("hlqjztL"), rest_.size()));
    if (rest_.empty())
        return false;
    to.conversion = rest_.front();
    if (std::string_view("@sdiuxXocfFeEgGp%").find(to.conversion) == std::string_view::npos)
        return false;
    rest_.remove_prefix(1);
    return true;
}

void Formatter::takeFlags(Placeholder& to) noexcept
{
    for (; !rest_.empty(); rest_.remove_prefix(1)) {
        switch (rest_.front()) {
        case '-': to.left = true; break;
        case '0': to.zero = true; break;
        case '+': to.plus = true; break;
        case ' ': to.blank = true; break;
        case '#': to.alternate = true; break;
        case '\'': break; // thousands are grouped by locale, so never
        default: return;
        }
    }
}

bool Formatter::takeStar() noexcept
{
    if (!rest_.starts_with('*'))
        return false;
    rest_.remove_prefix(1);
    return true;
}

std::size_t Formatter::takeNumber() noexcept
{
    std::size_t number = 0;
    for (; !rest_.empty() && rest_.front() >= '0' && rest_.front() <= '9'; rest_.remove_prefix(1))
        number = std::min(number * 10 + static_cast<std::size_t>(rest_.front() - '0'), kLongestField);
    return number;
}

std::int64_t Formatter::starArgument() noexcept
{
    constexpr auto limit = static_cast<std::int64_t>(kLongestField);
    const FormatArgument& argument = nextArgument();
    if (argument.kind_ == Kind::signedInteger)
        return std::clamp(argument.signed_, -limit, limit);
    if (argument.kind_ == Kind::unsignedInteger)
        return static_cast<std::int64_t>(std::min<std::uint64_t>(argument.unsigned_, kLongestField));
    return 0;
}

/// The integer in two's complement; nothing for an argument that is none.
std::optional<std::uint64_t> Formatter::integerBits(const FormatArgument& argument) noexcept
{
    if (argument.kind_ == Kind::signedInteger)
        return static_cast<std::uint64_t>(argument.signed_);
    return argument.kind_ == Kind::unsignedInteger ? std::optional(argument.unsigned_) : std::nullopt;
}

const FormatArgument& Formatter::nextArgument() noexcept
{
    static constexpr FormatArgument missing{nullptr};
    if (arguments_.empty())
        return missing;
    const FormatArgument& argument = arguments_.front();
    arguments_ = arguments_.subspan(1);
    return argument;
}

void Formatter::put(const Placeholder& how)
{
    if (how.conversion == '%') {
        result_ += '%';
        return;
    }
    const FormatArgument& argument = nextArgument();
    const std::size_t start = result_.size();
    bool done = false;
    switch (how.conversion) {
    case '@':
    case 's': break;
    case 'd':
    case 'i':
    case 'u':
    case 'x':
    case 'X':
    case 'o': done = putInteger(how, argument); break;
    case 'c': done = putCharacter(argument); break;
    case 'p':
        // A null pointer has an address here, where as text it is a missing object.
        done = argument.kind_ == Kind::pointer && !argument.pointer_;
        result_ += done ? "0x0" : "";
        break;
    default: done = putReal(how, argument); break;
    }
    if (!done)
        putText(argument);

    // A precision means digits where the placeholder asks for a number.
    if (how.precision && (how.conversion == '@' || how.conversion == 's'))
        result_.resize(start + firstCharacters(std::string_view(result_).substr(start), *how.precision).size());
    if (how.width == 0)
        return;
    const std::size_t length = characterCount(std::string_view(result_).substr(start));
    if (how.width > length)
        result_.insert(how.left ? result_.size() : start, how.width - length, ' ');
}

bool Formatter::putInteger(const Placeholder& how, const FormatArgument& argument)
{
    const auto bits = integerBits(argument);
    if (!bits)
        return false;
    std::uint64_t magnitude = *bits;
    const bool negative = argument.kind_ == Kind::signedInteger && argument.signed_ < 0;

    const bool isSigned = how.conversion == 'd' || how.conversion == 'i';
    std::string_view prefix;
    if (isSigned) {
        if (negative)
            magnitude = 0 - magnitude;
        prefix = negative ? "-" : how.plus ? "+" : how.blank ? " " : "";
    } else if (negative && argument.signed_ >= std::numeric_limits<std::int32_t>::min()) {
        // Arguments do not keep their width: a status of 32 bits shall read as such.
        magnitude = static_cast<std::uint32_t>(magnitude);
    }
    const bool isHex = how.conversion == 'x' || how.conversion == 'X';
    char digits[kLongestNumber];
    const auto end = std::to_chars(digits, digits + sizeof digits, magnitude,
                                   isHex                   ? 16
                                   : how.conversion == 'o' ? 8
                                                           : 10);
    std::string text(digits, end.ptr);
    if (how.alternate && magnitude != 0)
        prefix = how.conversion == 'x' ? "0x" : how.conversion == 'X' ? "0X" : prefix;
    if (how.conversion == 'X')
        makeUpper(text);
    if (how.precision && text.size() < *how.precision)
        text.insert(0, *how.precision - text.size(), '0');
    // Octal is marked by a digit: a zero in front, unless there is one.
    if (how.alternate && how.conversion == 'o' && !text.starts_with('0'))
        text.insert(0, 1, '0');
    putNumber(how, prefix, text, !how.precision);
    return true;
}

bool Formatter::putReal(const Placeholder& how, const FormatArgument& argument)
{
    if (argument.kind_ != Kind::real)
        return false;
    const char kind = static_cast<char>(how.conversion | 0x20);
    const auto format = kind == 'f'   ? std::chars_format::fixed
                        : kind == 'e' ? std::chars_format::scientific
                                      : std::chars_format::general;
    const std::size_t precision = how.precision.value_or(6);
    constexpr std::size_t longestWholePart = 320; // of the largest double, with its sign and its exponent
    std::string text(longestWholePart + precision, '\0');
    const auto end =
        std::to_chars(text.data(), text.data() + text.size(), argument.real_, format, static_cast<int>(precision));
    text.resize(static_cast<std::size_t>(end.ptr - text.data()));
    const bool negative = text.starts_with('-');
    if (negative)
        text.erase(0, 1);
    const bool isFinite = text.front() >= '0' && text.front() <= '9';
    if (kind != how.conversion)
        makeUpper(text);
    putNumber(how, negative ? "-" : how.plus ? "+" : how.blank ? " " : "", text, isFinite);
    return true;
}

bool Formatter::putCharacter(const FormatArgument& argument)
{
    const auto code = integerBits(argument);
    if (!code)
        return false;
    const bool isCharacter = *code <= 0x10FFFF && (*code < 0xD800 || *code > 0xDFFF);
    appendCharacter(result_, isCharacter ? static_cast<char32_t>(*code) : U'\uFFFD');
    return true;
}

void Formatter::putText(const FormatArgument& argument)
{
    switch (argument.kind_) {
    case Kind::missing: result_ += "(null)"; break;
    case Kind::text: result_ += argument.text_; break;
    case Kind::signedInteger: putDigits(argument.signed_); break;
    case Kind::unsignedInteger: putDigits(argument.unsigned_); break;
    case Kind::real: putDigits(argument.real_); break;
    case Kind::pointer:
        result_ += argument.pointer_ ? "0x" : "(null)";
        if (argument.pointer_)
            putDigits(reinterpret_cast<std::uintptr_t>(argument.pointer_), 16);
        break;
    case Kind::described: result_ += argument.described_.describe(argument.described_.object); break;
    }
}

void Formatter::putNumber(const Placeholder& how, std::string_view prefix, std::string_view number,
                          bool mayPadWithZeros)
{
    result_ += prefix;
    if (how.zero && !how.left && mayPadWithZeros && prefix.size() + number.size() < how.width)
        result_.append(how.width - prefix.size() - number.size(), '0');
    result_ += number;
}

template <class T, class... How>
void Formatter::putDigits(T value, How... how)
{
    char digits[kLongestNumber];
    result_.append(digits, std::to_chars(digits, digits + sizeof digits, value, how...).ptr);
}

} // namespace internal

FormatArgument::FormatArgument(const std::exception& error) noexcept
    : kind_(Kind::described), described_{&error, [](const void* it) -> std::string {
                                             return static_cast<const std::exception*>(it)->what();
                                         }}
{
}

std::string formatArguments(std::string_view format, std::span<const FormatArgument> arguments)
{
    return internal::Formatter(format, arguments).run();
}

} // namespace dmf
