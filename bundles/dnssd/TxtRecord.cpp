#include "TxtRecord.h"

#include <algorithm>
#include <initializer_list>

#include "PlainText.h"

namespace dmf::dnssd {

namespace {
/// An entry's length is one byte on the wire.
constexpr std::size_t kLongestEntry = 255;

char lowered(char c)
{
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

std::string lowered(std::string_view text)
{
    std::string result(text);
    std::transform(result.begin(), result.end(), result.begin(), [](char c) { return lowered(c); });
    return result;
}

std::string_view trimmed(std::string_view text)
{
    while (!text.empty() && text.front() == ' ')
        text.remove_prefix(1);
    while (!text.empty() && text.back() == ' ')
        text.remove_suffix(1);
    return text;
}

std::optional<std::string> firstOf(const TxtRecord& record, std::initializer_list<std::string_view> keys)
{
    for (const auto key : keys)
        if (auto text = record.text(key))
            return text;
    return std::nullopt;
}

/// "(Model 9)", as PostScript spells a product, without its parentheses.
std::string_view withoutParentheses(std::string_view text)
{
    const bool isInside = text.size() >= 2 && text.starts_with('(') && text.ends_with(')');
    return isInside ? trimmed(text.substr(1, text.size() - 2)) : text;
}

/// Names for people begin with the vendor: "QL Model 9". What follows it is the model.
std::string_view withoutVendor(std::string_view name, const std::optional<std::string>& vendor)
{
    if (!vendor || name.size() < vendor->size() + 2 || name[vendor->size()] != ' ')
        return name;
    return lowered(name.substr(0, vendor->size())) == lowered(*vendor) ? trimmed(name.substr(vendor->size())) : name;
}
} // namespace

TxtRecord::TxtRecord(const std::vector<std::string>& entries)
{
    for (const auto& entry : entries) {
        const auto equals = entry.find('=');
        if (equals == 0 || entry.empty() || entry.size() > kLongestEntry)
            continue;
        const auto key = std::string_view(entry).substr(0, equals);
        values_.emplace(lowered(key), equals == std::string::npos ? "" : entry.substr(equals + 1));
    }
}

std::optional<std::string> TxtRecord::text(std::string_view key) const
{
    const auto found = values_.find(key);
    if (found == values_.end() || !isPlainText(found->second))
        return std::nullopt;
    const auto text = trimmed(found->second);
    return text.empty() ? std::nullopt : std::optional<std::string>(text);
}

Identity TxtRecord::identity() const
{
    Identity identity;
    identity.vendor = firstOf(*this, {"usb_mfg", "usb_manufacturer", "mfg", "manufacturer", "vendor"});
    identity.model = firstOf(*this, {"usb_mdl", "usb_model", "mdl", "model"});
    if (!identity.model) {
        const auto name = firstOf(*this, {"ty", "product"}).value_or("");
        if (const auto model = withoutVendor(withoutParentheses(name), identity.vendor); !model.empty())
            identity.model = std::string(model);
    }
    identity.serialNumber =
        firstOf(*this, {"usb_sn", "usb_sern", "usb_serialnumber", "serialnumber", "serial", "sern", "sn"});
    identity.uuid = firstOf(*this, {"uuid"});
    return identity;
}

} // namespace dmf::dnssd
