#include <dmf/platform/Data.h>

#include <algorithm>
#include <cstring>

#include <string.h>

namespace dmf {

Data::Data(std::span<const std::uint8_t> bytes)
{
    if (!bytes.empty())
        storage_.edit().assign(bytes.begin(), bytes.end());
}

Data::Data(std::vector<std::uint8_t> bytes)
{
    if (!bytes.empty())
        storage_.edit() = std::move(bytes);
}

Data Data::fromText(std::string_view text)
{
    return Data(std::span(reinterpret_cast<const std::uint8_t*>(text.data()), text.size()));
}

std::size_t Data::size() const noexcept
{
    const auto* bytes = storage_.get();
    return bytes ? bytes->size() : 0;
}

std::span<const std::uint8_t> Data::bytes() const noexcept
{
    const auto* bytes = storage_.get();
    return bytes ? std::span<const std::uint8_t>(*bytes) : std::span<const std::uint8_t>();
}

std::string_view Data::text() const noexcept
{
    const auto all = bytes();
    return {reinterpret_cast<const char*>(all.data()), all.size()};
}

void Data::append(std::span<const std::uint8_t> bytes)
{
    if (bytes.empty())
        return;
    // The bytes may be this object's own: appending them must survive the growth of the storage.
    const auto* own = storage_.get();
    if (own && bytes.data() >= own->data() && bytes.data() < own->data() + own->size()) {
        const std::vector<std::uint8_t> copy(bytes.begin(), bytes.end());
        auto& target = storage_.edit();
        target.insert(target.end(), copy.begin(), copy.end());
        return;
    }
    auto& target = storage_.edit();
    target.insert(target.end(), bytes.begin(), bytes.end());
}

void Data::assign(std::span<const std::uint8_t> bytes)
{
    if (!storage_.isUnique())
        storage_ = {};
    storage_.edit().assign(bytes.begin(), bytes.end());
}

void Data::append(const Data& other)
{
    if (empty())
        *this = other;
    else
        append(other.bytes());
}

void Data::wipe() noexcept
{
    if (storage_.isUnique()) {
        auto& bytes = storage_.edit();
        explicit_bzero(bytes.data(), bytes.size());
    }
    *this = Data();
}

std::string Data::description() const
{
    constexpr std::size_t shown = 64;
    constexpr char digits[] = "0123456789abcdef";
    const auto all = bytes();
    std::string text = "<";
    for (std::size_t i = 0; i < std::min(all.size(), shown); ++i) {
        if (i > 0 && i % 4 == 0)
            text += ' ';
        text += digits[all[i] >> 4];
        text += digits[all[i] & 15];
    }
    if (all.size() > shown)
        text += " ...";
    return text + ">";
}

bool operator==(const Data& left, const Data& right) noexcept
{
    return left.storage_.sharesStorageWith(right.storage_) || std::ranges::equal(left.bytes(), right.bytes());
}

} // namespace dmf
