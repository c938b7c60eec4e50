#pragma once

#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <dmf/ADMInfo.h>

namespace dmf::internal {

// Steps through a tree in which any node may be missing: a step from nowhere leads nowhere.
using Info = std::shared_ptr<ADMInfo>;

[[nodiscard]] Info child(const Info& node, std::string_view name);
/// The first child of that name whose property has the value.
[[nodiscard]] Info child(const Info& node, std::string_view name, std::string_view property, std::string_view value);
[[nodiscard]] std::vector<Info> children(const Info& node);
/// The children of that name, in order.
[[nodiscard]] std::vector<Info> children(const Info& node, std::string_view name);
[[nodiscard]] std::optional<std::string> text(const Info& node);
/// The property as it is stored, when it is text.
[[nodiscard]] std::optional<std::string> property(const Info& node, std::string_view name);

} // namespace dmf::internal
