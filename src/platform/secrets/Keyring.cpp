#include "platform/secrets/Keyring.h"

#include <dmf/platform/Unicode.h>

#include <gio/gio.h>

#include <chrono>
#include <memory>
#include <mutex>
#include <string_view>
#include <utility>
#include <vector>

#include "platform/runloop/BoundedWork.h"
#include "platform/secrets/KeyringPrompt.h"
#include "platform/secrets/MessageBus.h"
#include "platform/secrets/SecretSession.h"

namespace dmf::internal {
namespace {

constexpr const char* kServicePath = "/org/freedesktop/secrets";
constexpr const char* kService = "org.freedesktop.Secret.Service";
constexpr const char* kCollection = "org.freedesktop.Secret.Collection";
constexpr const char* kItem = "org.freedesktop.Secret.Item";
constexpr const char* kProperties = "org.freedesktop.DBus.Properties";
constexpr const char* kNoObject = "/";

// Names that other programs use for network passwords, so that people find the item by them. "label" is there besides
// the item's own label, which cannot be searched for.
constexpr const char* kServerAttribute = "server";
constexpr const char* kAccountAttribute = "user";
constexpr const char* kLabelAttribute = "label";
constexpr const char* kAuthenticationAttribute = "authtype";
constexpr const char* kHttpBasic = "basic";
// Told for programs that show keyrings, never searched for: a keyring that was locked when its program started forgets
// the schemas.
constexpr const char* kSchemaAttribute = "xdg:schema";
constexpr const char* kSchema = "com.ql.dmf.Credential";

using Paths = std::vector<std::string>;

/// Text that a message of the bus can carry.
bool isSendable(std::string_view text)
{
    return isValidUtf8(text) && text.find('\0') == std::string_view::npos;
}

Paths pathsOf(GVariant* list)
{
    Paths paths;
    GVariantIter iterator;
    const char* path = nullptr;
    for (g_variant_iter_init(&iterator, list); g_variant_iter_next(&iterator, "&o", &path);)
        paths.emplace_back(path);
    return paths;
}

/// The paths in the first part of an answer.
Paths firstPaths(const Variant& answer)
{
    return answer ? pathsOf(Variant(g_variant_get_child_value(answer.get(), 0)).get()) : Paths();
}

GVariant* variantOfPaths(const Paths& paths)
{
    GVariantBuilder builder;
    g_variant_builder_init(&builder, G_VARIANT_TYPE("ao"));
    for (const auto& path : paths)
        g_variant_builder_add(&builder, "o", path.c_str());
    return g_variant_builder_end(&builder);
}

/// The place, if it can be searched for and stored under; `bounds` becomes what is left of it.
std::optional<KeyringPlace> usablePlace(const KeyringPlaceOf& placeOf, Bounds& bounds)
{
    const auto begin = BoundedWork::Clock::now();
    auto place = placeOf(bounds.answer);
    const double took = std::chrono::duration<double>(BoundedWork::Clock::now() - begin).count();
    bounds.answer -= took;
    bounds.person -= took;
    return place && isSendable(place->server) && isSendable(place->label) ? std::move(place) : std::nullopt;
}

/// The attributes of a place: all that is searched for, with the account where one item is meant.
GVariant* attributesOf(const KeyringPlace& place, const std::string* account, bool withSchema = false)
{
    GVariantBuilder builder;
    g_variant_builder_init(&builder, G_VARIANT_TYPE("a{ss}"));
    g_variant_builder_add(&builder, "{ss}", kServerAttribute, place.server.c_str());
    g_variant_builder_add(&builder, "{ss}", kLabelAttribute, place.label.c_str());
    g_variant_builder_add(&builder, "{ss}", kAuthenticationAttribute, kHttpBasic);
    if (account)
        g_variant_builder_add(&builder, "{ss}", kAccountAttribute, account->c_str());
    if (withSchema)
        g_variant_builder_add(&builder, "{ss}", kSchemaAttribute, kSchema);
    return g_variant_builder_end(&builder);
}

/// The Secret Service, for one piece of work.
class Keyring {
public:
    Keyring(const std::string& busAddress, BoundedWork& work)
        : work_(work), bus_(busAddress, work), session_(bus_, work)
    {
    }

    [[nodiscard]] KeyringState state();
    [[nodiscard]] std::optional<KeyringItem> find(const KeyringPlace& place);
    [[nodiscard]] bool store(const KeyringPlace& place, const std::string& account, const Secret& password);

private:
    using Problem = MessageBus::Problem;

    [[nodiscard]] Variant call(const std::string& path, const char* interface, const char* operation,
                               GVariant* arguments, const char* answer, Problem* problem = nullptr)
    {
        return bus_.call(kKeyringName, path, interface, operation, arguments, answer, problem);
    }
    [[nodiscard]] Variant property(const std::string& path, const char* interface, const char* name);
    /// The default collection's path; nothing when there is none.
    [[nodiscard]] std::optional<std::string> defaultCollection(Problem& problem);
    [[nodiscard]] std::optional<bool> isLocked(const std::string& collection);
    [[nodiscard]] bool unlock(const std::string& collection);
    [[nodiscard]] std::optional<std::string> accountOf(const std::string& item);
    [[nodiscard]] std::optional<Secret> passwordOf(const std::string& item);
    [[nodiscard]] bool create(const std::string& collection, const KeyringPlace& place, const std::string& account,
                              const Secret& password);

    BoundedWork& work_;
    MessageBus bus_;
    SecretSession session_;
};

Variant Keyring::property(const std::string& path, const char* interface, const char* name)
{
    const auto answer = call(path, kProperties, "Get", g_variant_new("(ss)", interface, name), "(v)");
    GVariant* value = nullptr;
    if (answer)
        g_variant_get(answer.get(), "(v)", &value);
    return Variant(value);
}

std::optional<std::string> Keyring::defaultCollection(Problem& problem)
{
    const auto answer = call(kServicePath, kService, "ReadAlias", g_variant_new("(s)", "default"), "(o)", &problem);
    const char* path = kNoObject;
    if (answer)
        g_variant_get(answer.get(), "(&o)", &path);
    return std::string_view(path) != kNoObject ? std::optional<std::string>(path) : std::nullopt;
}

std::optional<bool> Keyring::isLocked(const std::string& collection)
{
    const auto value = property(collection, kCollection, "Locked");
    if (!value || !g_variant_is_of_type(value.get(), G_VARIANT_TYPE_BOOLEAN))
        return std::nullopt;
    return g_variant_get_boolean(value.get()) != FALSE;
}

KeyringState Keyring::state()
{
    if (!bus_.isConnected())
        return work_.isLate() ? KeyringState::silent : KeyringState::noBus;
    Problem problem = Problem::none;
    const auto collection = defaultCollection(problem);
    if (!collection)
        return problem == Problem::none         ? KeyringState::noKeyring
               : problem == Problem::noSuchName ? KeyringState::noService
                                                : KeyringState::silent;
    const auto locked = isLocked(*collection);
    return !locked ? KeyringState::silent : *locked ? KeyringState::locked : KeyringState::ready;
}

/// Only what is needed: the person is asked once, and only by the keyring's own program.
bool Keyring::unlock(const std::string& collection)
{
    work_.allowForPerson();
    const auto answer =
        call(kServicePath, kService, "Unlock", g_variant_new("(@ao)", variantOfPaths({collection})), "(aoo)");
    if (!answer)
        return false;
    const char* prompt = kNoObject;
    g_variant_get_child(answer.get(), 1, "&o", &prompt);
    if (std::string_view(prompt) != kNoObject && !performKeyringPrompt(bus_, work_, prompt))
        return false;
    return isLocked(collection) == false;
}

std::optional<std::string> Keyring::accountOf(const std::string& item)
{
    const auto attributes = property(item, kItem, "Attributes");
    const char* account = nullptr;
    if (!attributes || !g_variant_is_of_type(attributes.get(), G_VARIANT_TYPE("a{ss}")) ||
        !g_variant_lookup(attributes.get(), kAccountAttribute, "&s", &account))
        return std::nullopt;
    return account;
}

std::optional<Secret> Keyring::passwordOf(const std::string& item)
{
    const auto answer = call(item, kItem, "GetSecret", g_variant_new("(o)", session_.path()), "((oayays))");
    if (!answer)
        return std::nullopt;
    const Variant secret(g_variant_get_child_value(answer.get(), 0));
    auto password = session_.decipher(secret.get());
    return password && isValidUtf8(password->view()) ? std::move(password) : std::nullopt;
}

std::optional<KeyringItem> Keyring::find(const KeyringPlace& place)
{
    if (!bus_.isConnected())
        return std::nullopt;
    // The answer tells items that can be read from items in locked keyrings, so nobody needs to be asked.
    const auto items = firstPaths(
        call(kServicePath, kService, "SearchItems", g_variant_new("(@a{ss})", attributesOf(place, nullptr)), "(aoao)"));
    if (items.empty() || !session_.open())
        return std::nullopt;
    auto account = accountOf(items.front());
    auto password = account ? passwordOf(items.front()) : std::nullopt;
    if (!password)
        return std::nullopt;
    return KeyringItem{*std::move(account), *std::move(password)};
}

bool Keyring::create(const std::string& collection, const KeyringPlace& place, const std::string& account,
                     const Secret& password)
{
    // Looking and adding are two steps for the service: within the process no other store comes between.
    static std::mutex* const stores = new std::mutex;
    std::unique_lock guard(*stores);
    const auto found =
        call(collection, kCollection, "SearchItems", g_variant_new("(@a{ss})", attributesOf(place, &account)), "(ao)");
    if (!found || !firstPaths(found).empty())
        return false;

    GVariantBuilder properties;
    g_variant_builder_init(&properties, G_VARIANT_TYPE("a{sv}"));
    g_variant_builder_add(&properties, "{sv}", "org.freedesktop.Secret.Item.Label",
                          g_variant_new_string(place.label.c_str()));
    g_variant_builder_add(&properties, "{sv}", "org.freedesktop.Secret.Item.Attributes",
                          attributesOf(place, &account, true));
    const auto answer =
        call(collection, kCollection, "CreateItem",
             g_variant_new("(a{sv}@(oayays)b)", &properties, session_.encipher(password), FALSE), "(oo)");
    if (!answer)
        return false;
    const char *item = kNoObject, *prompt = kNoObject;
    g_variant_get(answer.get(), "(&o&o)", &item, &prompt);
    if (std::string_view(prompt) == kNoObject)
        return std::string_view(item) != kNoObject;
    guard.unlock();
    work_.allowForPerson();
    return performKeyringPrompt(bus_, work_, prompt);
}

bool Keyring::store(const KeyringPlace& place, const std::string& account, const Secret& password)
{
    if (!bus_.isConnected())
        return false;
    Problem problem = Problem::none;
    const auto collection = defaultCollection(problem);
    if (!collection)
        return false;
    const auto locked = isLocked(*collection);
    if (!locked || (*locked && !unlock(*collection)))
        return false;
    return session_.open() && create(*collection, place, account, password);
}

} // namespace

std::optional<KeyringItem> findInKeyring(const KeyringPlaceOf& placeOf, Bounds bounds)
{
    const auto address = busAddress(Bus::session);
    const auto place = address ? usablePlace(placeOf, bounds) : std::nullopt;
    if (!place)
        return std::nullopt;
    auto found = BoundedWork::run<std::optional<KeyringItem>>(
        bounds, [address, place](BoundedWork& work) { return Keyring(*address, work).find(*place); });
    return found ? *std::move(found) : std::nullopt;
}

bool storeInKeyring(const KeyringPlaceOf& placeOf, const std::string& account, Secret password, Bounds bounds)
{
    const auto address = busAddress(Bus::session);
    // A password that is no text could be stored, but never be handed back.
    if (!address || !isSendable(account) || !isValidUtf8(password.view()))
        return false;
    const auto place = usablePlace(placeOf, bounds);
    if (!place)
        return false;
    const auto kept = std::make_shared<const Secret>(std::move(password));
    const auto isStored = BoundedWork::run<bool>(bounds, [address, place, account, kept](BoundedWork& work) {
        return Keyring(*address, work).store(*place, account, *kept);
    });
    return isStored.value_or(false);
}

} // namespace dmf::internal

namespace dmf {

using namespace internal;

KeyringState keyringState()
{
    const auto address = busAddress(Bus::session);
    if (!address)
        return KeyringState::noBus;
    return BoundedWork::run<KeyringState>(Bounds(),
                                          [address](BoundedWork& work) { return Keyring(*address, work).state(); })
        .value_or(KeyringState::silent);
}

} // namespace dmf
