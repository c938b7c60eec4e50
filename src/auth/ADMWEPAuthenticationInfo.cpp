#include <dmf/ADMWEPAuthenticationInfo.h>

#include <utility>
#include <vector>

#include <dmf/platform/Secret.h>

namespace {

dmf::Value deepCopy(const dmf::Value& value);

/// Gives a value that was copied where it stays storage of its own. A text has it already, and must not be moved any
/// more: a short one leaves its characters behind.
void unshare(dmf::Value& value)
{
    if (!value.asString())
        value = deepCopy(value);
}

/// Values share their storage, and shared storage cannot be wiped: the same value in storage of its own.
dmf::Value deepCopy(const dmf::Value& value)
{
    if (const auto* const data = value.asData())
        return dmf::Data(data->bytes());
    if (const auto* const array = value.asArray()) {
        std::vector<dmf::Value> items(array->begin(), array->end());
        for (auto& item : items)
            unshare(item);
        return dmf::Array(std::move(items));
    }
    if (const auto* const dictionary = value.asDictionary()) {
        std::vector<dmf::Dictionary::Entry> entries(dictionary->begin(), dictionary->end());
        for (auto& entry : entries)
            unshare(entry.value);
        return dmf::Dictionary(std::move(entries));
    }
    return value;
}

/// Only for a value of `deepCopy` that nobody else has seen: its strings and bytes were made as ordinary ones, and are
/// const only to those who look at them.
void wipe(const dmf::Value& value)
{
    if (const auto* const text = value.asString())
        dmf::Secret::wipe(const_cast<char*>(text->data()), text->size());
    if (const auto* const data = value.asData())
        dmf::Secret::wipe(const_cast<std::uint8_t*>(data->bytes().data()), data->size());
    if (const auto* const array = value.asArray()) {
        for (const auto& item : *array)
            wipe(item);
    }
    if (const auto* const dictionary = value.asDictionary()) {
        for (const auto& entry : *dictionary)
            wipe(entry.value);
    }
}

} // namespace

std::shared_ptr<ADMWEPAuthenticationInfo> ADMWEPAuthenticationInfo::initWithWEPKeys(const dmf::Value& WEPKeys)
{
    return WEPKeys.isNull() ? nullptr : std::make_shared<ADMWEPAuthenticationInfo>(Passkey(), WEPKeys);
}

std::shared_ptr<ADMWEPAuthenticationInfo>
ADMWEPAuthenticationInfo::initFromKeychainForServiceInfo(const std::shared_ptr<ADMServiceInfo>&)
{
    return nullptr;
}

ADMWEPAuthenticationInfo::ADMWEPAuthenticationInfo(Passkey, const dmf::Value& WEPKeys) : WEPKeys_(deepCopy(WEPKeys)) {}

ADMWEPAuthenticationInfo::~ADMWEPAuthenticationInfo()
{
    wipe(WEPKeys_);
}

dmf::Value ADMWEPAuthenticationInfo::WEPKeys() const
{
    return deepCopy(WEPKeys_);
}

bool ADMWEPAuthenticationInfo::storeInKeychainForServiceInfo(const std::shared_ptr<ADMServiceInfo>&) const
{
    return false;
}
