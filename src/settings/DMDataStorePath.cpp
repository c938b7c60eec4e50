#include <dmf/DMDataStorePath.h>

#include <dmf/platform/Format.h>

#include "platform/text/StringScanner.h"

namespace {

constexpr std::string_view kDomainStart = "domain[@name=\"";
constexpr std::string_view kItemStart = "item[@key=\"";
constexpr std::string_view kStepEnd = "\"]";
constexpr std::string_view kDomainEnd = "\"]/"; // one piece: no blank before the slash

} // namespace

std::string com_ql_dmf_stringByConvertingToDataStoreDomainName(std::string_view receiver)
{
    return dmf::formatted("domain[@name=\"%@\"]", receiver);
}

std::string com_ql_dmf_stringByConvertingToDataStoreItemPath(std::string_view receiver)
{
    return dmf::formatted("item[@key=\"%@\"]", receiver);
}

std::string com_ql_dmf_stringByAppendingDataStorePathComponent(std::string_view receiver, std::string_view key)
{
    return dmf::formatted("%@/item[@key=\"%@\"]", receiver, key);
}

std::optional<std::vector<std::string>> com_ql_dmf_dataStoreKeyList(std::string_view receiver)
{
    dmf::internal::StringScanner scanner(receiver);
    if (scanner.scan(kDomainStart)) {
        scanner.scanUpTo("\"");
        if (!scanner.scan(kDomainEnd))
            return {};
    }
    std::vector<std::string> keys;
    keys.reserve(5);
    while (scanner.scan(kItemStart)) {
        const auto key = scanner.scanUpTo("\"");
        if (!key || !scanner.scan(kStepEnd))
            return {};
        keys.emplace_back(*key);
        if (!scanner.atEnd() && !scanner.scan("/"))
            return {};
    }
    return keys.empty() ? std::nullopt : std::optional(std::move(keys));
}

std::optional<std::string> com_ql_dmf_dataStoreDomainName(std::string_view receiver)
{
    dmf::internal::StringScanner scanner(receiver);
    if (!scanner.scan(kDomainStart))
        return {};
    const auto name = scanner.scanUpTo("\"");
    return name ? std::optional<std::string>(*name) : std::nullopt;
}
