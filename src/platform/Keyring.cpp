#include "platform/Keyring.h"

#include <dmf/platform/Unicode.h>

#include <memory>
#include <mutex>
#include <string_view>
#include <utility>

#include "platform/BoundedSecretService.h"
#include "platform/BoundedWork.h"
#include "platform/GlibOwners.h"
#include "platform/MessageBus.h"

namespace dmf::internal {
namespace {

// Names that other programs use for network passwords, so that people find the item by them. "label" is there besides
// the item's own label, which cannot be searched for.
constexpr const char* kServerAttribute = "server";
constexpr const char* kAccountAttribute = "user";
constexpr const char* kLabelAttribute = "label";
constexpr const char* kAuthenticationAttribute = "authtype";
constexpr const char* kHttpBasic = "basic";

/// Its name is stored for programs that show keyrings, but never searched for: a keyring that was locked when its
/// program started forgets the schemas.
const SecretSchema* schema()
{
    static const SecretSchema* const credential = secret_schema_new(
        "com.ql.dmf.Credential", SECRET_SCHEMA_DONT_MATCH_NAME, kServerAttribute, SECRET_SCHEMA_ATTRIBUTE_STRING,
        kAccountAttribute, SECRET_SCHEMA_ATTRIBUTE_STRING, kLabelAttribute, SECRET_SCHEMA_ATTRIBUTE_STRING,
        kAuthenticationAttribute, SECRET_SCHEMA_ATTRIBUTE_STRING, nullptr);
    return credential;
}

/// Text that a message of the bus can carry.
bool isSendable(std::string_view text)
{
    return isValidUtf8(text) && text.find('\0') == std::string_view::npos;
}

/// The place, if it can be searched for and stored under.
std::optional<KeyringPlace> usablePlace(const KeyringPlaceOf& placeOf)
{
    auto place = placeOf();
    return place && isSendable(place->server) && isSendable(place->label) ? std::move(place) : std::nullopt;
}

/// The attributes of a place: all that is searched for, with the account where one item is meant.
Owned<GHashTable> attributesOf(const KeyringPlace& place, const char* account = nullptr)
{
    return Owned<GHashTable>(secret_attributes_build(schema(), kServerAttribute, place.server.c_str(), kLabelAttribute,
                                                     place.label.c_str(), kAuthenticationAttribute, kHttpBasic,
                                                     account ? kAccountAttribute : nullptr, account, nullptr));
}

/// The first of the items, which are let go.
Owned<SecretItem> firstOf(GList* items)
{
    Owned<SecretItem> first(items ? SECRET_ITEM(g_object_ref(items->data)) : nullptr);
    g_list_free_full(items, &g_object_unref);
    return first;
}

/// The Secret Service, for one piece of work.
class Keyring {
public:
    Keyring(const std::string& busAddress, BoundedWork& work)
        : work_(work), bus_(busAddress, work),
          service_(bus_.isConnected() ? openSecretService(bus_, work, problem_.slot()) : nullptr)
    {
    }

    [[nodiscard]] KeyringState state();
    [[nodiscard]] std::optional<KeyringItem> find(const KeyringPlace& place);
    [[nodiscard]] bool store(const KeyringPlace& place, const std::string& account, const Secret& password);

private:
    /// The default collection; nothing without an error when there is none.
    [[nodiscard]] Owned<SecretCollection> defaultCollection(GError** error)
    {
        return Owned<SecretCollection>(secret_collection_for_alias_sync(
            service_.get(), SECRET_COLLECTION_DEFAULT, SECRET_COLLECTION_NONE, work_.cancellable(), error));
    }
    [[nodiscard]] bool unlock(SecretCollection* collection);
    [[nodiscard]] bool agreeOnCipher();
    [[nodiscard]] bool create(SecretCollection* collection, const KeyringPlace& place, const std::string& account,
                              const Secret& password);

    BoundedWork& work_;
    MessageBus bus_;
    CallError problem_; // why there is no service_
    Owned<SecretService> service_;
};

KeyringState Keyring::state()
{
    if (!bus_.isConnected())
        return work_.isLate() ? KeyringState::silent : KeyringState::noBus;
    const auto collection = service_ ? defaultCollection(problem_.slot()) : nullptr;
    if (!collection)
        return !problem_                   ? KeyringState::noKeyring
               : problem_.saysNoSuchName() ? KeyringState::noService
                                           : KeyringState::silent;
    return secret_collection_get_locked(collection.get()) ? KeyringState::locked : KeyringState::ready;
}

/// Only what is needed: the person is asked once, and only by the keyring's own program.
bool Keyring::unlock(SecretCollection* collection)
{
    GList only{collection, nullptr, nullptr};
    return secret_service_unlock_sync(service_.get(), &only, work_.cancellable(), nullptr, nullptr) == 1;
}

/// libsecret goes back to plain text with a service that cannot encipher; that one is not used.
bool Keyring::agreeOnCipher()
{
    return secret_service_ensure_session_sync(service_.get(), work_.cancellable(), nullptr) &&
           std::string_view(secret_service_get_session_algorithms(service_.get())) != "plain";
}

std::optional<KeyringItem> Keyring::find(const KeyringPlace& place)
{
    if (!service_)
        return std::nullopt;
    // Items that can be read come before items of locked keyrings, so nobody needs to be asked.
    const auto item = firstOf(secret_service_search_sync(service_.get(), schema(), attributesOf(place).get(),
                                                         SECRET_SEARCH_NONE, work_.cancellable(), nullptr));
    if (!item || secret_item_get_locked(item.get()) || !agreeOnCipher() ||
        !secret_item_load_secret_sync(item.get(), work_.cancellable(), nullptr))
        return std::nullopt;

    const Owned<GHashTable> attributes(secret_item_get_attributes(item.get()));
    const auto* const account = static_cast<const char*>(g_hash_table_lookup(attributes.get(), kAccountAttribute));
    const Owned<SecretValue> value(secret_item_get_secret(item.get()));
    if (!account || !value)
        return std::nullopt;
    gsize size = 0;
    const char* const text = secret_value_get(value.get(), &size);
    const std::string_view password(text, size);
    return isValidUtf8(password) ? std::optional(KeyringItem{account, Secret(password)}) : std::nullopt;
}

bool Keyring::create(SecretCollection* collection, const KeyringPlace& place, const std::string& account,
                     const Secret& password)
{
    // Looking and adding are two steps for the service: within the process no other store comes between.
    static std::mutex* const stores = new std::mutex;
    const std::lock_guard guard(*stores);
    const auto attributes = attributesOf(place, account.c_str());
    CallError problem;
    const auto existing = firstOf(secret_collection_search_sync(
        collection, schema(), attributes.get(), SECRET_SEARCH_NONE, work_.cancellable(), problem.slot()));
    if (existing || problem)
        return false;
    const auto text = password.view();
    const Owned<SecretValue> value(secret_value_new(text.data(), static_cast<gssize>(text.size()), "text/plain"));
    return Owned<SecretItem>(secret_item_create_sync(collection, schema(), attributes.get(), place.label.c_str(),
                                                     value.get(), SECRET_ITEM_CREATE_NONE, work_.cancellable(),
                                                     nullptr)) != nullptr;
}

bool Keyring::store(const KeyringPlace& place, const std::string& account, const Secret& password)
{
    const auto collection = service_ ? defaultCollection(nullptr) : nullptr;
    if (!collection || (secret_collection_get_locked(collection.get()) && !unlock(collection.get())))
        return false;
    return agreeOnCipher() && create(collection.get(), place, account, password);
}

} // namespace

std::optional<KeyringItem> findInKeyring(KeyringPlaceOf placeOf, Bounds bounds)
{
    const auto address = busAddress(Bus::session);
    if (!address)
        return std::nullopt;
    auto found = BoundedWork::run<std::optional<KeyringItem>>(
        bounds, [address, placeOf = std::move(placeOf)](BoundedWork& work) {
            const auto place = usablePlace(placeOf);
            return place ? Keyring(*address, work).find(*place) : std::nullopt;
        });
    return found ? *std::move(found) : std::nullopt;
}

bool storeInKeyring(KeyringPlaceOf placeOf, const std::string& account, Secret password, Bounds bounds)
{
    const auto address = busAddress(Bus::session);
    // A password that is no text could be stored, but never be handed back.
    if (!address || !isSendable(account) || !isValidUtf8(password.view()))
        return false;
    const auto kept = std::make_shared<const Secret>(std::move(password));
    const auto isStored =
        BoundedWork::run<bool>(bounds, [address, placeOf = std::move(placeOf), account, kept](BoundedWork& work) {
            const auto place = usablePlace(placeOf);
            return place && Keyring(*address, work).store(*place, account, *kept);
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
