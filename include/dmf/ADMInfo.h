#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <dmf/platform/Export.h>
#include <dmf/platform/Protocol.h>
#include <dmf/platform/Value.h>

namespace dmf {

/// The index that stands for "no index given".
inline constexpr std::uint32_t kNotFound = 0x7FFFFFFF;

} // namespace dmf

/// The value of a node of model information, converted on demand. Each conversion answers nothing for a node that does
/// not support it. Thread-safe for reading.
class DMF_EXPORT ADMInfoValue {
public:
    [[nodiscard]] static const dmf::Protocol& protocol();
    virtual ~ADMInfoValue();

    /// The raw value, unconverted; a null value for none.
    [[nodiscard]] virtual dmf::Value value() const = 0;
    [[nodiscard]] virtual std::optional<dmf::Date> dateValue() const = 0;
    [[nodiscard]] virtual std::optional<dmf::Data> dataValue() const = 0;
    [[nodiscard]] virtual std::optional<dmf::Number> numberValue() const = 0;
    [[nodiscard]] virtual std::optional<std::string> stringValue() const = 0;
};

/// A node of the read-only tree of model information, whatever the file's format: a name, properties (attribute name
/// to value), a value and child nodes. A node stays good after its parent is gone. Thread-safe for reading.
///
/// Look-ups answer an empty pointer, or an empty list, for "none".
class DMF_EXPORT ADMInfo : public ADMInfoValue {
public:
    [[nodiscard]] static const dmf::Protocol& protocol();
    ~ADMInfo() override;

    /// Nothing for formats that have no properties.
    [[nodiscard]] virtual std::optional<dmf::Dictionary> properties() const = 0;
    /// Nothing for an unnamed node.
    [[nodiscard]] virtual std::optional<std::string> name() const = 0;

    /// The first child of that name; of a property list's array, none.
    [[nodiscard]] virtual std::shared_ptr<ADMInfo> infoNamed(std::string_view name) const = 0;
    /// One child; how the name and the index work together is the format's business. The name may be missing, the
    /// index may be dmf::kNotFound. A property list's array throws std::out_of_range for an index past its end.
    [[nodiscard]] virtual std::shared_ptr<ADMInfo> infoNamed(std::optional<std::string_view> name,
                                                             std::uint32_t index) const = 0;
    /// A child of that name that carries all those properties. Of an XML element it is the one that carries them and no
    /// others, the last of several, and failing that the first one that carries them; of a property list, which knows
    /// no properties, the entry of that name.
    [[nodiscard]] virtual std::shared_ptr<ADMInfo> infoNamed(std::string_view name,
                                                             const dmf::Dictionary& properties) const = 0;
    /// A child of that name whose property has that value; which one is decided in the same way.
    [[nodiscard]] virtual std::shared_ptr<ADMInfo> infoNamed(std::string_view name, std::string_view propertyValue,
                                                             std::string_view property) const = 0;
    /// The nodes that the path selects, relative to this one.
    [[nodiscard]] virtual std::vector<std::shared_ptr<ADMInfo>> infoForPath(std::string_view path) const = 0;

    /// The child nodes in order; empty for a leaf.
    [[nodiscard]] virtual std::vector<std::shared_ptr<ADMInfo>> allInfos() const = 0;
    /// How many child nodes there are.
    [[nodiscard]] virtual std::uint32_t count() const = 0;
};
