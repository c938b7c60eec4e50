#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>

#include <dmf/platform/Value.h>

#include <nlohmann/json.hpp>

#include "Printable.h"

namespace dmf::tool {

/// Fields keep the order in which they were written, so that the output reads the same every time.
using Json = nlohmann::ordered_json;

/// What the program tells its caller by its exit status.
enum class ExitCode {
    done = 0,
    failed = 1,
    wrongCommandLine = 2,
    timedOut = 3,
    nothingFound = 4,
    interrupted = 130,
};

/// {"schema": ..., "error": {"code": ..., "message": ...}}
[[nodiscard]] Json errorObject(ExitCode code, const std::string& reason);

/// Ends a command: the exit status, the reason for people, and what is known all the same, for JSON.
class Failure : public std::runtime_error {
public:
    Failure(ExitCode code, const std::string& reason, Json fields = Json::object());

    [[nodiscard]] ExitCode code() const noexcept { return code_; }
    [[nodiscard]] const Json& fields() const noexcept { return fields_; }

private:
    ExitCode code_;
    Json fields_;
};

/// Where a command's words go: results to standard output, everything else to standard error. What could steer a
/// terminal is made visible on one, and goes into pipes and files as it is. With `json` a run writes
/// exactly one object, errors included (`simulate` too: its object comes when it is ready); with `oneLine`, any number.
/// Not thread-safe.
class Output {
public:
    bool json = false;
    bool quiet = false;
    /// With `json`: objects, as many as there are, on a line each.
    bool oneLine = false;

    /// Writes the result: the object `fields`, or what `people` writes for people.
    void result(Json fields, const std::function<std::string(const Json&)>& people);
    /// The result in the common form for people: a line per field, nested ones indented.
    void result(Json fields);
    /// Raw bytes of a result, for `--answer`; byte for byte into pipes and files.
    void bytes(std::string_view bytes);

    /// A remark on standard error; silent with `quiet`.
    void note(const std::string& text);
    void failure(const Failure& failure);

    [[nodiscard]] bool showsProgress() const;
    /// Replaces the progress line; an empty text removes it. Nothing happens unless `showsProgress`.
    void progress(const std::string& text);

    /// Hands everything over to the system. False when that failed (a full disk, say).
    [[nodiscard]] bool finish();

private:
    void writeObject(const Json& object);

    bool wroteObject_ = false;
    bool lineIsOpen_ = false; // what went to standard output last does not end in a line end
    std::size_t progressWidth_ = 0;
    PrintableStream stream_; // of `bytes`, on a terminal
};

/// Strings as they are, data in base64, dates as "2026-01-31T12:00:00Z".
[[nodiscard]] Json toJson(const Value& value);
[[nodiscard]] Json toJson(const std::optional<std::string>& text);

/// A line per field ("name: value"), nested ones indented.
[[nodiscard]] std::string describe(const Json& fields);

/// "3.2 kB"; the same in every locale.
[[nodiscard]] std::string byteCount(std::uint64_t bytes);
/// `seconds` with `decimals` places.
[[nodiscard]] std::string decimal(double value, int decimals);
/// The value rounded to milliseconds, for JSON.
[[nodiscard]] double rounded(double seconds);

} // namespace dmf::tool
