#include "Messages.h"

#include <arpa/inet.h>
#include <net/if.h>
#include <netinet/in.h>

#include <cstring>
#include <string_view>

namespace dmf::dnssd {

namespace {
constexpr std::uint16_t kInternetClass = 1;
constexpr std::uint16_t kAddressRecord = 1;
constexpr std::uint16_t kAddressRecord6 = 28;
/// Flag of a look-up: leave the host's address out.
constexpr std::uint32_t kNoAddress = 8;

bool isOfForm(GVariant* message, const char* form)
{
    return message && g_variant_is_of_type(message, G_VARIANT_TYPE(form));
}

/// The entries in the order of the record. The daemon hands them over from the last to the first.
std::vector<std::string> entriesIn(GVariant* list)
{
    std::vector<std::string> entries;
    entries.reserve(g_variant_n_children(list));
    for (gsize i = g_variant_n_children(list); i-- > 0;) {
        const Owned<GVariant> entry(g_variant_get_child_value(list, i));
        gsize length = 0;
        const auto* const bytes = static_cast<const char*>(g_variant_get_fixed_array(entry.get(), &length, 1));
        entries.emplace_back(length != 0 ? bytes : "", length);
    }
    return entries;
}

/// A link-local address means nothing without the interface behind which it is.
std::string zoneOf(std::int32_t interface)
{
    char name[IF_NAMESIZE];
    if (interface <= 0)
        return "";
    const auto index = static_cast<unsigned>(interface);
    std::string zone(1, '%');
    zone += ::if_indextoname(index, name) ? std::string(name) : std::to_string(index);
    return zone;
}
} // namespace

GVariant* browserArguments(const std::string& type)
{
    // An empty domain is the daemon's own.
    return g_variant_new("(iissu)", kAnyInterface, kAnyProtocol, type.c_str(), "", 0u);
}

GVariant* resolveArguments(const ServiceName& service, std::int32_t interface, std::int32_t protocol)
{
    return g_variant_new("(iisssiu)", interface, protocol, service.name.c_str(), service.type.c_str(),
                         service.domain.c_str(), kAnyProtocol, kNoAddress);
}

GVariant* addressArguments(const std::string& hostName, bool isIPv6)
{
    return g_variant_new("(iisqqu)", kAnyInterface, kAnyProtocol, hostName.c_str(), kInternetClass,
                         isIPv6 ? kAddressRecord6 : kAddressRecord, 0u);
}

std::optional<Item> itemIn(GVariant* arguments)
{
    if (!isOfForm(arguments, "(iisssu)"))
        return std::nullopt;
    Item item{};
    const char* name = nullptr;
    const char* domain = nullptr;
    g_variant_get(arguments, "(ii&s&s&su)", &item.interface, &item.protocol, &name, nullptr, &domain, nullptr);
    item.name = name;
    item.domain = domain;
    return item;
}

std::optional<ResolvedService> resolvedIn(GVariant* reply)
{
    if (!isOfForm(reply, "(iissssisqaayu)"))
        return std::nullopt;
    ResolvedService service{};
    const char* host = nullptr;
    GVariant* list = nullptr;
    g_variant_get(reply, "(ii&s&s&s&si&sq@aayu)", nullptr, nullptr, nullptr, nullptr, nullptr, &host, nullptr, nullptr,
                  &service.port, &list, nullptr);
    const Owned<GVariant> txt(list);
    service.hostName = host;
    service.txt = entriesIn(txt.get());
    return service;
}

std::optional<AddressItem> addressIn(GVariant* arguments)
{
    if (!isOfForm(arguments, "(iisqqayu)"))
        return std::nullopt;
    std::int32_t interface = 0;
    GVariant* data = nullptr;
    g_variant_get(arguments, "(ii&sqq@ayu)", &interface, nullptr, nullptr, nullptr, nullptr, &data, nullptr);
    const Owned<GVariant> record(data);
    gsize length = 0;
    const void* const bytes = g_variant_get_fixed_array(record.get(), &length, 1);
    char text[INET6_ADDRSTRLEN];
    if (length == sizeof(in_addr) && ::inet_ntop(AF_INET, bytes, text, sizeof text))
        return AddressItem{text, false};
    in6_addr address{};
    if (length != sizeof address)
        return std::nullopt;
    std::memcpy(&address, bytes, sizeof address);
    if (!::inet_ntop(AF_INET6, &address, text, sizeof text))
        return std::nullopt;
    return AddressItem{text + (IN6_IS_ADDR_LINKLOCAL(&address) ? zoneOf(interface) : ""), true};
}

bool isTimeOut(const GError* error)
{
    if (!error)
        return false;
    const Owned<char> name(g_dbus_error_get_remote_error(error));
    return (name && std::string_view(name.get()) == "org.freedesktop.Avahi.TimeoutError") ||
           g_error_matches(error, G_IO_ERROR, G_IO_ERROR_TIMED_OUT);
}

std::string failureIn(GVariant* arguments)
{
    if (!isOfForm(arguments, "(s)"))
        return "no reason given";
    const char* text = nullptr;
    g_variant_get(arguments, "(&s)", &text);
    return text;
}

} // namespace dmf::dnssd
