#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <dmf/ADMInfo.h>
#include <dmf/platform/Export.h>
#include <dmf/platform/Value.h>

/// Which kind of property-list object a node wraps: at most one bit is set, none for a boolean, an object or nothing.
struct DMFlags {
    std::uint8_t isDictionary : 1 = 0; // 1
    std::uint8_t isArray : 1 = 0;      // 2
    std::uint8_t isString : 1 = 0;     // 4
    std::uint8_t isNumber : 1 = 0;     // 8
    std::uint8_t isData : 1 = 0;       // 16
    std::uint8_t isDate : 1 = 0;       // 32
};

/// A node of model information over a property list. Immutable and thread-safe.
///
/// Children of a dictionary are found by name and those of an array by index; property lists carry no properties, so
/// property arguments are ignored. Every look-up makes a new child node; only `allInfos` keeps its list.
class DMF_EXPORT ADMPlistInfoElement : public ADMInfo {
public:
    /// `name` may be missing, `info` may be null.
    explicit ADMPlistInfoElement(std::optional<std::string> name, dmf::Value info);
    [[nodiscard]] static std::shared_ptr<ADMPlistInfoElement> plistInfoWithName(std::optional<std::string> name,
                                                                                dmf::Value info);
    ~ADMPlistInfoElement() override;
    ADMPlistInfoElement(const ADMPlistInfoElement&) = delete;
    ADMPlistInfoElement& operator=(const ADMPlistInfoElement&) = delete;

    [[nodiscard]] DMFlags flags() const noexcept { return flags_; }

    [[nodiscard]] dmf::Value value() const override;
    /// The date; of a string, the date that it spells as "2026-11-22 20:15:00 +0100".
    [[nodiscard]] std::optional<dmf::Date> dateValue() const override;
    /// The bytes; of a dictionary, its XML property list unless it holds what property lists cannot.
    [[nodiscard]] std::optional<dmf::Data> dataValue() const override;
    /// The number; of a string, its leading number in single precision, 0 when there is none.
    [[nodiscard]] std::optional<dmf::Number> numberValue() const override;
    /// The string; of a date, its description. A number is deliberately not turned into text.
    [[nodiscard]] std::optional<std::string> stringValue() const override;

    /// Always nothing.
    [[nodiscard]] std::optional<dmf::Dictionary> properties() const override;
    [[nodiscard]] std::optional<std::string> name() const override;
    /// The entry under the name, for a dictionary.
    [[nodiscard]] std::shared_ptr<ADMInfo> infoNamed(std::string_view name) const override;
    /// For a dictionary with a name: the entry, the index being ignored. For an array with an index: the object there,
    /// unnamed, the name being ignored; throws std::out_of_range past the end.
    [[nodiscard]] std::shared_ptr<ADMInfo> infoNamed(std::optional<std::string_view> name,
                                                     std::uint32_t index) const override;
    [[nodiscard]] std::shared_ptr<ADMInfo> infoNamed(std::string_view name,
                                                     const dmf::Dictionary& properties) const override;
    [[nodiscard]] std::shared_ptr<ADMInfo> infoNamed(std::string_view name, std::string_view propertyValue,
                                                     std::string_view property) const override;
    /// A path is a sequence of dictionary keys between "/"; at most one node matches.
    [[nodiscard]] std::vector<std::shared_ptr<ADMInfo>> infoForPath(std::string_view path) const override;
    /// The same nodes on every call, made by the first.
    [[nodiscard]] std::vector<std::shared_ptr<ADMInfo>> allInfos() const override;
    [[nodiscard]] std::uint32_t count() const override;

    [[nodiscard]] std::string description() const;

protected:
    /// Makes a child node; a subclass makes its own kind.
    [[nodiscard]] virtual std::shared_ptr<ADMPlistInfoElement> makeChild(std::optional<std::string> name,
                                                                         dmf::Value info) const;

private:
    using List = std::vector<std::shared_ptr<ADMInfo>>;
    [[nodiscard]] std::shared_ptr<const List> infoList() const;

    DMFlags flags_;
    std::optional<std::string> name_;
    mutable std::shared_ptr<const List> infoList_; // made on demand, guarded by the lazy-fill lock of this address
    dmf::Value info_;
};
