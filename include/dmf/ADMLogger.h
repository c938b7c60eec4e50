#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>

#include <dmf/platform/Export.h>
#include <dmf/platform/FileHandle.h>
#include <dmf/platform/Format.h>

/// Where messages go. A program makes loggers of its own, pushes one onto the calling thread's stack with
/// `startLogging` and takes it off with `endLogging` on the same thread; the library's messages made on that thread in
/// between go to it. Thread-safe.
///
/// A level lets through every message whose rank is at most its own. The ranks run against severity on purpose:
/// "nolog" 1, "info" 2, "warnings" 3, "errors" 4, "debug" 5, "debug2" 6; any other word is unknown.
class DMF_EXPORT ADMLogger : public std::enable_shared_from_this<ADMLogger> {
public:
    /// The rank of an unknown or missing level word.
    static constexpr std::int32_t kUnknownLevel = 2147483647;

    /// Each makes an ADMLoggerImp; see there.
    [[nodiscard]] static std::shared_ptr<ADMLogger> init();
    [[nodiscard]] static std::shared_ptr<ADMLogger> initWithLogLevel(std::optional<std::string> level);
    [[nodiscard]] static std::shared_ptr<ADMLogger> initWithLogLevel(std::optional<std::string> level,
                                                                     std::optional<std::string> logFile);
    [[nodiscard]] static std::shared_ptr<ADMLogger>
    initWithLogLevelFileHandle(std::optional<std::string> level, std::shared_ptr<dmf::FileHandle> fileHandle);

    virtual ~ADMLogger();
    ADMLogger(const ADMLogger&) = delete;
    ADMLogger& operator=(const ADMLogger&) = delete;

    /// The logger of the process, without a level of its own, on the default file. It lives to the process's end.
    [[nodiscard]] static std::shared_ptr<ADMLogger> defaultLogger();
    [[nodiscard]] static std::int32_t levelValueFromString(std::string_view level);
    /// What a line of that level begins with; nothing for "nolog" and unknown words.
    [[nodiscard]] static std::optional<std::string> infoPrefixFromString(std::string_view level);
    /// The configured level word, or nothing. A word is kept for five seconds before its file is read again. A file
    /// that is missing, cannot be read, is no regular file, holds more than 65,536 bytes, is not UTF-8 or holds nothing
    /// but white space gives nothing, and is read again each time. Any other content counts as one word, known or not.
    [[nodiscard]] static std::optional<std::string> environmentLogLevel();
    /// The file at `path`, made when it is missing (readable by all, writable by its owner) and opened for reading and
    /// for appending; empty, with the reason in `refusal` when it is not null, when that fails or `reasonNotToLog`
    /// speaks against it.
    [[nodiscard]] static std::shared_ptr<dmf::FileHandle> createLogFileIfNeeded(const std::string& path,
                                                                                std::string* refusal = nullptr);
    /// Why this program would not log to `path`, as far as that can be told without making the file; empty when it
    /// would. The file must be a regular one, and root's or the program's own user's: what somebody else put there
    /// would hand him the lines. A link, and a file with a second name, counts only in a folder of root's or of the
    /// user's own that nobody else may write to. A program with raised privileges trusts root's files alone.
    [[nodiscard]] static std::string reasonNotToLog(const std::string& path);

    /// Puts this logger on top of the calling thread's stack / takes its first entry off again.
    void startLogging();
    void endLogging();

    /// Writes one message where the level lets it through, as one line: control characters in its text are escaped, so
    /// that what a device or a URI says cannot pass for a line of its own. Left to subclasses: throws
    /// dmf::UnrecognizedOperation.
    virtual void printWithLevel(std::string_view level, std::string_view format,
                                std::span<const dmf::FormatArgument> arguments);

protected:
    ADMLogger();
};
