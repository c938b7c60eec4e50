#include <dmf/ADMServiceInfo.h>
#include <dmf/ADMServiceResolver.h>
#include <dmf/IDMDevice.h>

#include <array>

// The descriptors of the interfaces that this area is the first to need. All constant data.
namespace {

using Operations = std::string_view;

constexpr std::array<Operations, 2> kDeviceOperations{"isReachable", "retrieveParameters:withHandler:"};
constexpr dmf::Protocol kDevice("IDMDevice", {}, kDeviceOperations);

constexpr std::array<Operations, 1> kDeviceHandlerOperations{"isCanceledForDevice:"};
constexpr dmf::Protocol kDeviceHandler("IDMDeviceHandler", {}, kDeviceHandlerOperations);

constexpr std::array<Operations, 7> kDeviceInfoOperations{
    "connectionType", "connectionParams", "vendorName", "modelName", "deviceName", "modelInfo", "isEqualToDeviceInfo:",
};
constexpr dmf::Protocol kDeviceInfo("ADMDeviceInfo", {}, kDeviceInfoOperations);

constexpr std::array<Operations, 12> kCoreServiceInfoOperations{
    "device",           "setDevice:",       "locateDeviceWithHandler:", "isReachable",   "ioProvider",
    "setVendorName:",   "setModelName:",    "setDeviceName:",           "setModelInfo:", "setConnectionParams:",
    "setServiceState:", "setResolvedSpec:",
};
constexpr dmf::Protocol kCoreServiceInfo("IDMCoreServiceInfo", {}, kCoreServiceInfoOperations);

constexpr std::array<const dmf::Protocol*, 1> kServiceInfoAdopts{&kDeviceInfo};
constexpr std::array<Operations, 16> kServiceInfoOperations{
    "uri",
    "universalURIWithScheme:",
    "hasStandardURI",
    "deviceClass",
    "serviceName",
    "serviceState",
    "supportedDeviceClasses",
    "dataRepresentation",
    "isEqualToServiceInfo:",
    "delegate",
    "setDelegate:",
    "scheduleInRunLoop:forMode:",
    "removeFromRunLoop:forMode:",
    "resolveServiceWithParameters:timeout:",
    "resolveWithTimeout:",
    "stop",
};
constexpr dmf::Protocol kServiceInfo("ADMServiceInfo", kServiceInfoAdopts, kServiceInfoOperations);

constexpr std::array<Operations, 7> kServiceResolverOperations{
    "lastError",
    "resolvedDevice",
    "resolvedInfo",
    "stop",
    "resolveService:withTimeout:parameters:onRunLoop:inModes:",
    "setDelegate:",
    "delegate",
};
constexpr dmf::Protocol kServiceResolver("ADMServiceResolver", {}, kServiceResolverOperations);

} // namespace

const dmf::Protocol& IDMDevice::protocol()
{
    return kDevice;
}
IDMDevice::~IDMDevice() = default;

const dmf::Protocol& IDMDeviceHandler::protocol()
{
    return kDeviceHandler;
}
IDMDeviceHandler::~IDMDeviceHandler() = default;

const dmf::Protocol& ADMDeviceInfo::protocol()
{
    return kDeviceInfo;
}
ADMDeviceInfo::~ADMDeviceInfo() = default;

const dmf::Protocol& IDMCoreServiceInfo::protocol()
{
    return kCoreServiceInfo;
}
IDMCoreServiceInfo::~IDMCoreServiceInfo() = default;

const dmf::Protocol& ADMServiceInfo::protocol()
{
    return kServiceInfo;
}
ADMServiceInfo::~ADMServiceInfo() = default;

const dmf::Protocol& ADMServiceResolver::protocol()
{
    return kServiceResolver;
}
ADMServiceResolver::~ADMServiceResolver() = default;
