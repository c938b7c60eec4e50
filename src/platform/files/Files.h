#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace dmf::internal {

enum class Links : std::uint8_t { follow, refuse };

/// Whether there is a folder at `path`; a link to one counts. Thread-safe.
[[nodiscard]] bool isFolder(const std::string& path);

/// The path of the folder that the last part of `path` lies in. Thread-safe.
[[nodiscard]] std::string folderOf(const std::string& path);

/// The path without links, "." and ".."; nothing, with the reason in errno, when it leads nowhere. Thread-safe.
[[nodiscard]] std::optional<std::string> realPath(const std::string& path);

/// The refusal of a file that holds more than the limit.
inline constexpr std::string_view kTooLarge = "is too large";

/// The content of the regular file at `path`; nothing, with a reason in `refusal` when it is not null, when there is no
/// such file, it cannot be read, it is anything but a regular file (a link included, when links are refused) or it
/// holds more than `limit` bytes. Never waits for another process (a named pipe is refused). Thread-safe.
[[nodiscard]] std::optional<std::vector<std::uint8_t>> readRegularFile(const std::string& path, std::size_t limit,
                                                                       Links links, std::string* refusal = nullptr);

} // namespace dmf::internal
