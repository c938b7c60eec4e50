#include <dmf/DMCore.h>

#include <sys/single_threaded.h>

#include <dmf/platform/Unicode.h>

#include <atomic>
#include <cstdlib>

#include "platform/host/Host.h"
#include "platform/host/Thread.h"

using dmf::internal::Host;

namespace {

constexpr std::int32_t kIntrospectionSince = 0x1050;

bool introspectionIsAvailable()
{
    return DMGetLocalSysVersion() >= kIntrospectionSince;
}

bool isAsciiLetters(std::string_view text)
{
    return text.find_first_not_of("abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ") == std::string_view::npos;
}

bool isRegion(std::string_view text)
{
    const bool number = text.size() == 3 && text.find_first_not_of("0123456789") == std::string_view::npos;
    return number || (text.size() == 2 && isAsciiLetters(text));
}

} // namespace

void DMCoreInit()
{
    static std::atomic<bool> done{false};
    if (done.exchange(true))
        return;
    // A second thread, however short, takes the C library out of its single-threaded mode, in which it leaves out locks
    // and atomic operations. Where none can be started now, the first one that can does the same service.
    if (__libc_single_threaded)
        (void)dmf::internal::startThread("dmf-first", dmf::internal::ThreadForm::detached, [] {});
}

void* DMMalloc(std::uint32_t size)
{
    return std::malloc(size);
}

void* DMCalloc(std::uint32_t count, std::uint32_t size)
{
    return count && size ? std::calloc(count, size) : nullptr;
}

void* DMRealloc(void* block, std::uint32_t size)
{
    return block && size ? std::realloc(block, size) : nullptr;
}

void DMFree(void* block)
{
    std::free(block);
}

std::vector<const std::string_view*> DMGetObjCProtocolSelectors(const dmf::Protocol* protocol)
{
    std::vector<const std::string_view*> operations;
    if (!protocol || !introspectionIsAvailable())
        return operations;
    const auto adopted = protocol->adopted();
    for (auto it = adopted.rbegin(); it != adopted.rend(); ++it) {
        const auto inherited = DMGetObjCProtocolSelectors(*it);
        operations.insert(operations.end(), inherited.begin(), inherited.end());
    }
    const auto own = protocol->operations();
    for (auto it = own.rbegin(); it != own.rend(); ++it)
        operations.push_back(&*it);
    return operations;
}

bool DMObjCProtocolsEqual(const dmf::Protocol* protocol, const dmf::Protocol* other)
{
    if (!introspectionIsAvailable())
        return false;
    if (!protocol || !other)
        return protocol == other;
    return protocol->conformsTo(*other) && other->conformsTo(*protocol);
}

bool DMObjCProtocolHasSelector(const dmf::Protocol* protocol, std::string_view operation)
{
    for (const std::string_view* required : DMGetObjCProtocolSelectors(protocol)) {
        if (*required == operation)
            return true;
    }
    return false;
}

std::string DMGetObjCProtocolName(const dmf::Protocol* protocol)
{
    return protocol && introspectionIsAvailable() ? std::string(protocol->name()) : std::string();
}

std::int32_t DMGetLocalSysVersion()
{
    return static_cast<std::int32_t>(Host::current().systemVersion.load(std::memory_order_relaxed));
}

std::optional<std::string> DMSystemLocaleString()
{
    std::string preferred;
    for (const char* name : {"LANGUAGE", "LC_ALL", "LC_MESSAGES", "LANG"}) {
        preferred = Host::current().environment(name).value_or("");
        if (!preferred.empty())
            break;
    }
    // LANGUAGE is a list: "pt_BR:pt". Behind the region there may be an encoding and a variant: "de_AT.UTF-8@euro".
    std::string_view rest = std::string_view(preferred).substr(0, preferred.find_first_of(":.@"));
    if (rest == "C" || rest == "POSIX")
        return std::nullopt;

    const std::string_view language = rest.substr(0, rest.find_first_of("_-"));
    if (language.size() < 2 || language.size() > 3 || !isAsciiLetters(language))
        return std::nullopt;
    std::string locale = dmf::lowercased(language);
    // A script may stand between the two: "zh_Hant_TW" is "zh-TW".
    rest.remove_prefix(language.size());
    while (!rest.empty()) {
        rest.remove_prefix(1);
        const std::string_view part = rest.substr(0, rest.find_first_of("_-"));
        if (isRegion(part))
            return locale + "-" + dmf::uppercased(part);
        rest.remove_prefix(part.size());
    }
    return locale;
}

std::optional<std::string> DMCanonicalColorName(const std::optional<std::string>& colorName)
{
    if (!colorName)
        return std::nullopt;
    std::string name = dmf::lowercased(*colorName);
    for (const std::string_view word : {" ink", " cartridge", " toner", " supply"}) {
        std::size_t from = 0;
        while (const auto found = dmf::findIgnoringCase(name, word, from)) {
            name.erase(found->location, found->length);
            from = found->location;
        }
    }
    static const dmf::CharacterSet* const letters = new dmf::CharacterSet(dmf::CharacterSet::letters());
    std::string canonical;
    for (std::string_view rest = name; !rest.empty();) {
        const char32_t character = dmf::takeCharacter(rest);
        if (letters->contains(character))
            dmf::appendCharacter(canonical, character);
    }
    return canonical;
}
