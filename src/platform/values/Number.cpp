#include <dmf/platform/Value.h>

#include <algorithm>
#include <charconv>
#include <cmath>
#include <limits>

namespace dmf {
namespace {

template <class T>
T truncated(double value) noexcept
{
    if (std::isnan(value))
        return 0;
    // The upper limit as a double is one past the largest T, so everything below it converts exactly.
    if (value <= static_cast<double>(std::numeric_limits<T>::min()))
        return std::numeric_limits<T>::min();
    if (value >= std::ldexp(1.0, std::numeric_limits<T>::digits))
        return std::numeric_limits<T>::max();
    return static_cast<T>(value);
}

} // namespace

std::int64_t Number::int64Value() const noexcept
{
    switch (kind_) {
    case Kind::signedInteger: return signed_;
    case Kind::unsignedInteger:
        return static_cast<std::int64_t>(
            std::min<std::uint64_t>(unsigned_, static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max())));
    case Kind::real: break;
    }
    return truncated<std::int64_t>(real_);
}

std::uint64_t Number::uint64Value() const noexcept
{
    switch (kind_) {
    case Kind::signedInteger: return signed_ < 0 ? 0 : static_cast<std::uint64_t>(signed_);
    case Kind::unsignedInteger: return unsigned_;
    case Kind::real: break;
    }
    return truncated<std::uint64_t>(real_);
}

std::int32_t Number::int32Value() const noexcept
{
    return static_cast<std::int32_t>(std::clamp<std::int64_t>(int64Value(), std::numeric_limits<std::int32_t>::min(),
                                                              std::numeric_limits<std::int32_t>::max()));
}

std::uint32_t Number::uint32Value() const noexcept
{
    return static_cast<std::uint32_t>(
        std::min<std::uint64_t>(uint64Value(), std::numeric_limits<std::uint32_t>::max()));
}

double Number::doubleValue() const noexcept
{
    switch (kind_) {
    case Kind::signedInteger: return static_cast<double>(signed_);
    case Kind::unsignedInteger: return static_cast<double>(unsigned_);
    case Kind::real: break;
    }
    return real_;
}

std::string Number::description() const
{
    char text[64];
    std::to_chars_result result{};
    switch (kind_) {
    case Kind::signedInteger: result = std::to_chars(text, text + sizeof text, signed_); break;
    case Kind::unsignedInteger: result = std::to_chars(text, text + sizeof text, unsigned_); break;
    case Kind::real: result = std::to_chars(text, text + sizeof text, real_); break;
    }
    return std::string(text, result.ptr);
}

bool operator==(const Number& left, const Number& right) noexcept
{
    using Kind = Number::Kind;
    if (left.kind_ == Kind::real || right.kind_ == Kind::real) {
        const double a = left.doubleValue();
        const double b = right.doubleValue();
        if (a != b)
            return false;
        // Large integers can meet in one double without being equal.
        if (left.kind_ == right.kind_)
            return true;
        const Number& integer = left.kind_ == Kind::real ? right : left;
        if (integer.kind_ == Kind::signedInteger)
            return a < std::ldexp(1.0, 63) && truncated<std::int64_t>(a) == integer.signed_;
        return a < std::ldexp(1.0, 64) && truncated<std::uint64_t>(a) == integer.unsigned_;
    }
    if (left.kind_ == right.kind_)
        return left.unsigned_ == right.unsigned_;
    const Number& signedOne = left.kind_ == Kind::signedInteger ? left : right;
    return signedOne.signed_ >= 0 && left.uint64Value() == right.uint64Value();
}

} // namespace dmf
