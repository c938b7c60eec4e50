#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>

#include <dmf/ADMLogger.h>

namespace dmf::internal {
class LogFile;
}

/// Writes lines to a file: prefix, blank, local time in brackets, blank, message. Lines of one logger never
/// interleave, and there is one logger per file in a process, so one file has one level. Thread-safe.
class DMF_EXPORT ADMLoggerImp final : public ADMLogger {
public:
    /// The default file and the configured level.
    [[nodiscard]] static std::shared_ptr<ADMLoggerImp> init();
    [[nodiscard]] static std::shared_ptr<ADMLoggerImp> initWithLogLevel(std::optional<std::string> level);
    /// The logger of the file, or of the default file when no path is given. Where one exists already it is handed
    /// back, and `level` is ignored. Without a level the logger follows the configured one; with an unknown level it
    /// writes everything. A file that cannot be opened gives a logger that accepts messages and writes nothing until
    /// it can: a message that is to be written tries again, at most once a second.
    [[nodiscard]] static std::shared_ptr<ADMLoggerImp> initWithLogLevel(std::optional<std::string> level,
                                                                        std::optional<std::string> logFile);
    /// A logger on a file that is open already; empty without one.
    [[nodiscard]] static std::shared_ptr<ADMLoggerImp>
    initWithLogLevelFileHandle(std::optional<std::string> level, std::shared_ptr<dmf::FileHandle> fileHandle);

    ~ADMLoggerImp() override;

    [[nodiscard]] const std::optional<std::string>& level() const noexcept { return level_; }

    /// Writes one line, by one write, where the level lets it through. A message that does not format or is not UTF-8,
    /// and a line that the file does not take, are lost; the next line begins on a line of its own all the same. What a
    /// derived file handle throws that is no std::exception is passed on.
    void printWithLevel(std::string_view level, std::string_view format,
                        std::span<const dmf::FormatArgument> arguments) override;

private:
    struct Made; // only the initialisers make loggers
public:
    ADMLoggerImp(const Made&, std::optional<std::string> level, std::shared_ptr<dmf::internal::LogFile> file,
                 std::string path);

private:
    [[nodiscard]] bool letsThrough(std::int32_t rank) const;
    void writeMessage(std::string_view prefix, std::string_view text);
    void writePlainMessage(std::string_view prefix, std::string_view text);

    const std::optional<std::string> level_;
    const std::int32_t levelRank_;                 // of level_
    std::shared_ptr<dmf::internal::LogFile> file_; // never empty, never changed while the logger lives
    const std::string path_;
};
