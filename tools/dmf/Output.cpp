#include "Output.h"

#include <unistd.h>

#include <cmath>
#include <cstdio>
#include <ctime>
#include <utility>

#include <dmf/DMDataExtension.h>

#include "Interrupt.h"

namespace dmf::tool {

namespace {

constexpr std::string_view kSchema = "dmf/1";

bool isTerminal(FILE* stream)
{
    return ::isatty(::fileno(stream)) == 1;
}

bool coloured(FILE* stream)
{
    const char* const plain = ::getenv("NO_COLOR");
    const char* const terminal = ::getenv("TERM");
    return isTerminal(stream) && !(plain && *plain) && terminal && std::string_view(terminal) != "dumb";
}

void write(FILE* stream, std::string_view text)
{
    std::fwrite(text.data(), 1, text.size(), stream);
}

std::string isoDate(const Date& date)
{
    const double seconds = std::floor(date.secondsSince1970());
    if (!(std::abs(seconds) < 1.0e12))
        return date.description();
    const auto time = static_cast<std::time_t>(seconds);
    std::tm parts{};
    if (!::gmtime_r(&time, &parts))
        return date.description();
    char text[64];
    return {text, std::strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%SZ", &parts)};
}

std::string scalar(const Json& value)
{
    if (value.is_string())
        return printable(value.get_ref<const std::string&>());
    if (value.is_null())
        return "-";
    if (value.is_boolean())
        return value.get<bool>() ? "yes" : "no";
    return value.dump();
}

bool isScalarList(const Json& value)
{
    if (!value.is_array())
        return false;
    for (const auto& item : value)
        if (item.is_structured())
            return false;
    return true;
}

std::string joined(const Json& list)
{
    std::string text;
    for (const auto& item : list)
        text += (text.empty() ? "" : ", ") + scalar(item);
    return text.empty() ? "-" : text;
}

void describeFields(const Json& fields, std::size_t indent, std::string& text);

void describeField(const std::string& name, const Json& value, std::size_t indent, std::string& text)
{
    text += printable(name) + ":";
    if (isScalarList(value)) {
        text += ' ' + joined(value) + '\n';
    } else if (value.is_array()) {
        text += '\n';
        for (const auto& item : value) {
            // The first field of an item stands beside the dash, the others below it.
            std::string lines;
            if (item.is_object())
                describeFields(item, indent + 4, lines);
            else
                lines = std::string(indent + 4, ' ') + (item.is_structured() ? joined(item) : scalar(item)) + '\n';
            if (lines.size() > indent + 4)
                lines[indent + 2] = '-';
            text += lines;
        }
    } else if (value.is_object()) {
        text += value.empty() ? " -\n" : "\n";
        describeFields(value, indent + 2, text);
    } else {
        text += ' ' + scalar(value) + '\n';
    }
}

void describeFields(const Json& fields, std::size_t indent, std::string& text)
{
    for (const auto& [name, value] : fields.items()) {
        text.append(indent, ' ');
        describeField(name, value, indent, text);
    }
}

} // namespace

Failure::Failure(ExitCode code, const std::string& reason, Json fields)
    : std::runtime_error(reason), code_(code), fields_(std::move(fields))
{
}

Json errorObject(ExitCode code, const std::string& reason)
{
    Json object = Json::object();
    object["schema"] = kSchema;
    object["error"] = {{"code", static_cast<int>(code)}, {"message", reason}};
    return object;
}

void Output::writeObject(const Json& object)
{
    // Bytes that are not UTF-8 would otherwise make the library throw; they come from devices and files.
    const std::string text = object.dump(oneLine ? -1 : 2, ' ', false, Json::error_handler_t::replace) + '\n';
    write(stdout, isTerminal(stdout) ? printableJson(text) : text);
    std::fflush(stdout);
    wroteObject_ = true;
    Interrupt::oweObject(false);
}

void Output::result(Json fields, const std::function<std::string(const Json&)>& people)
{
    progress({});
    if (!json) {
        const std::string text = people(fields);
        write(stdout, isTerminal(stdout) ? printableLines(text) : text);
        return;
    }
    Json object = Json::object();
    object["schema"] = kSchema;
    object.update(fields);
    writeObject(object);
}

void Output::result(Json fields)
{
    result(std::move(fields), [](const Json& all) { return describe(all); });
}

void Output::bytes(std::string_view bytes)
{
    progress({});
    if (isTerminal(stdout))
        write(stdout, stream_.take(bytes));
    else
        write(stdout, bytes);
    std::fflush(stdout);
    lineIsOpen_ = !bytes.ends_with('\n');
}

void Output::note(const std::string& text)
{
    if (quiet)
        return;
    // On a terminal both streams share the line.
    const bool needsLineEnd = std::exchange(lineIsOpen_, false) && isTerminal(stdout);
    write(stderr, (needsLineEnd ? "\n" : "") + (isTerminal(stderr) ? printableLines(text) : text) + '\n');
}

void Output::failure(const Failure& failure)
{
    progress({});
    std::fflush(stdout);
    const bool colour = coloured(stderr);
    write(stderr, (colour ? "\x1b[31mdmf:\x1b[0m " : "dmf: ") + printable(failure.what()) + '\n');
    if (!json || wroteObject_)
        return;
    Json object = Json::object();
    object["schema"] = kSchema;
    object.update(failure.fields());
    object["error"] = errorObject(failure.code(), failure.what())["error"];
    writeObject(object);
}

bool Output::showsProgress() const
{
    return !quiet && !json && isTerminal(stderr);
}

void Output::progress(const std::string& text)
{
    if (!showsProgress() || (text.empty() && progressWidth_ == 0))
        return;
    const std::string shown = printable(text);
    std::string line = '\r' + shown;
    if (shown.size() < progressWidth_)
        line.append(progressWidth_ - shown.size(), ' ');
    if (shown.empty())
        line += '\r';
    progressWidth_ = shown.size();
    write(stderr, line);
}

bool Output::finish()
{
    write(stdout, stream_.rest());
    return std::fflush(stdout) == 0 && std::ferror(stdout) == 0;
}

Json toJson(const Value& value)
{
    switch (value.kind()) {
    case Value::Kind::null: return nullptr;
    case Value::Kind::boolean: return *value.asBool();
    case Value::Kind::string: return *value.asString();
    case Value::Kind::data: return com_ql_dmf_base64String(*value.asData());
    case Value::Kind::date: return isoDate(*value.asDate());
    case Value::Kind::object: return value.description();
    case Value::Kind::number: {
        const Number& number = *value.asNumber();
        switch (number.kind()) {
        case Number::Kind::signedInteger: return number.int64Value();
        case Number::Kind::unsignedInteger: return number.uint64Value();
        case Number::Kind::real: return number.doubleValue();
        }
        break;
    }
    case Value::Kind::array: {
        Json list = Json::array();
        for (const auto& item : *value.asArray())
            list.push_back(toJson(item));
        return list;
    }
    case Value::Kind::dictionary: {
        Json object = Json::object();
        for (const auto& [key, item] : *value.asDictionary())
            object[key] = toJson(item);
        return object;
    }
    }
    return nullptr;
}

Json toJson(const std::optional<std::string>& text)
{
    return text ? Json(*text) : Json(nullptr);
}

std::string describe(const Json& fields)
{
    std::string text;
    describeFields(fields, 0, text);
    return text;
}

std::string decimal(double value, int decimals)
{
    char text[64];
    std::snprintf(text, sizeof text, "%.*f", decimals, value); // the program never leaves the "C" locale
    return text;
}

double rounded(double seconds)
{
    return std::round(seconds * 1000.0) / 1000.0;
}

std::string byteCount(std::uint64_t bytes)
{
    if (bytes < 1000)
        return std::to_string(bytes) + (bytes == 1 ? " byte" : " bytes");
    static constexpr const char* kUnits[] = {" kB", " MB", " GB", " TB"};
    double amount = static_cast<double>(bytes) / 1000.0;
    std::size_t unit = 0;
    for (; amount >= 999.95 && unit + 1 < std::size(kUnits); ++unit)
        amount /= 1000.0;
    return decimal(amount, 1) + kUnits[unit];
}

} // namespace dmf::tool
