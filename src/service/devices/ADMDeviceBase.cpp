#include <dmf/ADMDeviceBase.h>

#include <dmf/ADMModelInfo.h>
#include <dmf/ADMModelInfoManager.h>
#include <dmf/DMDeviceID.h>
#include <dmf/platform/Error.h>

#include "foundation/keys/Vendors.h"

ADMDeviceBase::ADMDeviceBase(const dmf::Dictionary&, const std::shared_ptr<IDMDeviceHandler>&) {}

ADMDeviceBase::~ADMDeviceBase() = default;

std::optional<std::string> ADMDeviceBase::newRetrievedDeviceIDWithTimeout(double)
{
    throw dmf::UnrecognizedOperation("ADMDeviceBase", "newRetrievedDeviceIDWithTimeout:");
}

dmf::Dictionary ADMDeviceBase::retrieveParameters(const dmf::Dictionary&, std::shared_ptr<IDMDeviceHandler>)
{
    throw dmf::UnrecognizedOperation("ADMDeviceBase", "retrieveParameters:withHandler:");
}

std::optional<std::string> ADMDeviceBase::cachedDeviceID()
{
    constexpr double seconds = 5.0;
    {
        std::lock_guard guard(lock_);
        if (cachedDeviceID_)
            return cachedDeviceID_;
    }
    auto retrieved = newRetrievedDeviceIDWithTimeout(seconds);
    std::lock_guard guard(lock_);
    if (!cachedDeviceID_)
        cachedDeviceID_ = std::move(retrieved);
    return cachedDeviceID_;
}

std::optional<std::string> ADMDeviceBase::field(std::optional<std::string> ADMDeviceBase::*kept,
                                                std::string_view longKey, std::string_view shortKey)
{
    {
        std::lock_guard guard(lock_);
        if (this->*kept)
            return this->*kept;
    }
    const auto deviceID = cachedDeviceID();
    if (!deviceID)
        return {};
    auto value = DeviceIDCreateValueList(*deviceID, longKey, shortKey);
    std::lock_guard guard(lock_);
    if (!(this->*kept))
        this->*kept = std::move(value);
    return this->*kept;
}

std::optional<std::string> ADMDeviceBase::vendor()
{
    return field(&ADMDeviceBase::vendor_, "MANUFACTURER:", "MFG:");
}

std::optional<std::string> ADMDeviceBase::model()
{
    return field(&ADMDeviceBase::model_, "MODEL:", "MDL:");
}

std::optional<std::string> ADMDeviceBase::serialNumber()
{
    return field(&ADMDeviceBase::serialNumber_, "SERN:", "SN:");
}

std::optional<std::string> ADMDeviceBase::name()
{
    if (auto description = field(&ADMDeviceBase::name_, "DESCRIPTION:", "DES:"))
        return description;
    std::lock_guard guard(lock_);
    if (!name_)
        name_ = model_;
    return name_;
}

std::shared_ptr<ADMCoreModelInfo> ADMDeviceBase::modelInfo()
{
    {
        std::lock_guard guard(lock_);
        if (modelInfo_)
            return modelInfo_;
    }
    const auto modelName = model();
    if (!modelName)
        return nullptr;
    auto made = ADMModelInfoManager::sharedManager()->modelInfoWithModelName(*modelName);
    std::lock_guard guard(lock_);
    if (!modelInfo_)
        modelInfo_ = std::move(made);
    return modelInfo_;
}

bool ADMDeviceBase::isReachable()
{
    return newRetrievedDeviceIDWithTimeout(dmf::Date::distantFuture().timeIntervalSince(dmf::Date::now())).has_value();
}

bool ADMDeviceBase::isSupportedVendorName(std::optional<std::string_view> name)
{
    return name && dmf::internal::isAcceptedVendor(*name);
}
