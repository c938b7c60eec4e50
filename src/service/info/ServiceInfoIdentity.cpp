#include <dmf/ADMServiceInfoImp.h>

#include <dmf/ADMServiceURIParser.h>
#include <dmf/DMKeys.h>
#include <dmf/DMStringExtension.h>
#include <dmf/platform/Unicode.h>

#include <algorithm>
#include <typeinfo>
#include <utility>

#include "platform/documents/Archive.h"

using namespace dmf::internal;

// A service info as bytes, and beside another one.

namespace {

bool shareAnElement(const dmf::Array& left, const dmf::Array& right)
{
    return std::any_of(left.begin(), left.end(), [&](const dmf::Value& value) { return right.contains(value); });
}

} // namespace

void ADMServiceInfoImp::serializeToData(dmf::Data& data) const
{
    if (const auto archive = archived(container()))
        data.append(*archive);
}

std::optional<dmf::Data> ADMServiceInfoImp::dataRepresentation() const
{
    dmf::Data data;
    serializeToData(data);
    return data.empty() ? std::nullopt : std::optional(std::move(data));
}

void ADMServiceInfoImp::deserializeFromData(const dmf::Data& data)
{
    auto read = unarchived(data.bytes());
    if (!read)
        return;
    ADMServiceURIParser parser(read->string(kURIProp).value_or(std::string()));
    const bool isReadable = parser.parse();

    std::lock_guard guard(lock_);
    container_ = *std::move(read);
    modelInfo_ = nullptr;
    if (isReadable)
        setProperties(parser.components());
}

std::shared_ptr<ADMServiceInfo> ADMServiceInfoImp::copy() const
{
    return initWithData(dataRepresentation());
}

bool ADMServiceInfoImp::isEqual(ADMServiceInfo& other)
{
    const ADMServiceInfo& self = *this;
    return typeid(self) == typeid(other) && isEqualToServiceInfo(other);
}

bool ADMServiceInfoImp::isEqualToServiceInfo(ADMServiceInfo& other)
{
    if (this == &other)
        return true;
    const auto mine = uri();
    const auto theirs = other.uri();
    return mine.has_value() == theirs.has_value() && (!mine || dmf::lowercased(*mine) == dmf::lowercased(*theirs)) &&
           serviceName() == other.serviceName();
}

bool ADMServiceInfoImp::isEqualToDeviceInfo(ADMDeviceInfo& other)
{
    if (modelName() != other.modelName() || connectionType() != other.connectionType())
        return false;
    const auto mine = connectionParams();
    const auto theirs = other.connectionParams();
    const auto agree = [&](std::string_view key) {
        return !mine.contains(key) || !theirs.contains(key) || mine[key] == theirs[key];
    };
    const auto* const myAddresses = mine[kAllIPAddressesParam].asArray();
    const auto* const theirAddresses = theirs[kAllIPAddressesParam].asArray();
    return agree(kSerialNumberParam) &&
           (!myAddresses || !theirAddresses || shareAnElement(*myAddresses, *theirAddresses)) &&
           agree(kMACAddressParam);
}

std::uint32_t ADMServiceInfoImp::hash()
{
    return com_ql_dmf_MD5Hash(uri().value_or(std::string()) + deviceClass().value_or(std::string()));
}
