#pragma once

#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace dmf::dnssd {

/// What a device says of itself; each is nothing when it does not say.
struct Identity {
    std::optional<std::string> vendor;
    std::optional<std::string> model;
    std::optional<std::string> serialNumber;
    std::optional<std::string> uuid{};
};

/// A service's TXT record: "key=value" entries, written by devices of every quality. Of several entries with one key
/// the first counts, whatever it holds; keys have no letter case; entries without a key, and those that are longer than
/// a record can hold, are none. Values may be any bytes.
class TxtRecord {
public:
    TxtRecord() = default;
    explicit TxtRecord(const std::vector<std::string>& entries);

    /// The value as a text for people: UTF-8 without control characters, trimmed. Nothing when it is missing, empty or
    /// of another kind. `key` in small letters.
    [[nodiscard]] std::optional<std::string> text(std::string_view key) const;
    /// Vendor, model, serial number and UUID, by the keys under which printers and scanners tell them.
    [[nodiscard]] Identity identity() const;

private:
    std::map<std::string, std::string, std::less<>> values_;
};

} // namespace dmf::dnssd
