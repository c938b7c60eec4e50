#pragma once

#include <cstdint>
#include <string_view>

#include <dmf/platform/Export.h>

// The names by which programs, plug-ins and the library speak of properties, parameters and notifications. Each key is
// one constant object of the library, initialised before any code runs: comparing the `data()` of two keys tells the
// very same key from one of merely equal text. Not usable in constant expressions. All end in a zero byte.

/// Connection types: the values of a service's connection type. The raw socket transport is called "IP".
extern DMF_EXPORT const std::string_view kUSBConnectionType;
extern DMF_EXPORT const std::string_view kSocketConnectionType;
extern DMF_EXPORT const std::string_view kLPDConnectionType;
extern DMF_EXPORT const std::string_view kIPPConnectionType;
extern DMF_EXPORT const std::string_view kQLIPConnectionType;
extern DMF_EXPORT const std::string_view kRendezvousConnectionType;
extern DMF_EXPORT const std::string_view kAppleTalkConnectionType;
extern DMF_EXPORT const std::string_view kBluetoothConnectionType;

/// Device classes.
extern DMF_EXPORT const std::string_view kPrinterDeviceClass;
extern DMF_EXPORT const std::string_view kScannerDeviceClass;
extern DMF_EXPORT const std::string_view kFaxDeviceClass;
extern DMF_EXPORT const std::string_view kStorageDeviceClass;

/// Connection and resolution parameters: keys of a service's parameter dictionary.
extern DMF_EXPORT const std::string_view kIPAddressParam;
extern DMF_EXPORT const std::string_view kAllIPAddressesParam;
extern DMF_EXPORT const std::string_view kIPPortParam;
extern DMF_EXPORT const std::string_view kHostNameParam;
extern DMF_EXPORT const std::string_view kMACAddressParam;
extern DMF_EXPORT const std::string_view kSerialNumberParam;
extern DMF_EXPORT const std::string_view kAppleTalkZoneParam;
extern DMF_EXPORT const std::string_view kUSBVendorIDParam;
extern DMF_EXPORT const std::string_view kUSBProductIDParam;
extern DMF_EXPORT const std::string_view kUSBLocationIDParam;
extern DMF_EXPORT const std::string_view kInterfaceNumberParam;
extern DMF_EXPORT const std::string_view kRendezvousAddressParam;
extern DMF_EXPORT const std::string_view kBonjourDomainNameParam;
extern DMF_EXPORT const std::string_view kBonjourServiceDomainParam;
extern DMF_EXPORT const std::string_view kBonjourServiceNameParam;
extern DMF_EXPORT const std::string_view kBonjourServiceTypeParam;
extern DMF_EXPORT const std::string_view kDMServiceConnectionType;
extern DMF_EXPORT const std::string_view kDMNoServiceReachabilityCheckParameterKey;
extern DMF_EXPORT const std::string_view kDMParameterPollingIntervalKey;
extern DMF_EXPORT const std::string_view kDMParameterOperationTimeoutKey;
extern DMF_EXPORT const std::string_view kDMProtectionSpaceKey;

/// Service info properties: the keys under which a service info is serialised.
extern DMF_EXPORT const std::string_view kURIProp;
extern DMF_EXPORT const std::string_view kConnectionTypeProp;
extern DMF_EXPORT const std::string_view kDeviceClassProp;
extern DMF_EXPORT const std::string_view kDeviceNameProp;
extern DMF_EXPORT const std::string_view kModelNameProp;
extern DMF_EXPORT const std::string_view kServiceNameProp;
extern DMF_EXPORT const std::string_view kVendorNameProp;
extern DMF_EXPORT const std::string_view kParamsProp;

/// Model information: keys of model files and of the model tables. The two defaults share one value on purpose, and the
/// notification's name keeps its leading "k".
extern DMF_EXPORT const std::string_view kDMInformationKey;
extern DMF_EXPORT const std::string_view kDMFunctionalInterface;
extern DMF_EXPORT const std::string_view kDMConnectionKey;
extern DMF_EXPORT const std::string_view kDMConnectionListKey;
extern DMF_EXPORT const std::string_view kDMProtocolSpecificConnectionList;
extern DMF_EXPORT const std::string_view kDMProtocolKey;
extern DMF_EXPORT const std::string_view kDMProtocolsListKey;
extern DMF_EXPORT const std::string_view kDMProtocolImplementorKey;
extern DMF_EXPORT const std::string_view kDMClassNameKey;
extern DMF_EXPORT const std::string_view kDMTransportKey;
extern DMF_EXPORT const std::string_view kDMIOChannelKey;
extern DMF_EXPORT const std::string_view kDMServiceKey;
extern DMF_EXPORT const std::string_view kDMServiceListKey;
extern DMF_EXPORT const std::string_view kDMFeatureKey;
extern DMF_EXPORT const std::string_view kDMFeaturesListKey;
extern DMF_EXPORT const std::string_view kDMPropertyKey;
extern DMF_EXPORT const std::string_view kDMSpecificInfoKey;
extern DMF_EXPORT const std::string_view kDMParentNameKey;
extern DMF_EXPORT const std::string_view kDMRemoveKey;
extern DMF_EXPORT const std::string_view kDMFamilyKey;
extern DMF_EXPORT const std::string_view kDMFamilyName;
extern DMF_EXPORT const std::string_view kDMModelName;
extern DMF_EXPORT const std::string_view kDMModelIdKey;
extern DMF_EXPORT const std::string_view kDMModelCodeNameKey;
extern DMF_EXPORT const std::string_view kDMVendorNameKey;
extern DMF_EXPORT const std::string_view kDMDeviceClassKey;
extern DMF_EXPORT const std::string_view kDMPathToIconKey;
extern DMF_EXPORT const std::string_view kDMUtilityNameKey;
extern DMF_EXPORT const std::string_view kDMUtilitySignatureKey;
extern DMF_EXPORT const std::string_view kDMFFeaturesKey;
extern DMF_EXPORT const std::string_view kDMFKey;
extern DMF_EXPORT const std::string_view kDMFTableName;
extern DMF_EXPORT const std::string_view kDMModelInfoKey;
extern DMF_EXPORT const std::string_view kDMDefaultModelFile;
extern DMF_EXPORT const std::string_view kDMDefaultModelName;
extern DMF_EXPORT const std::string_view kDMPathToModelInfoFilesKey;
extern DMF_EXPORT const std::string_view kDMModelInfoChangedTableKey;
extern DMF_EXPORT const std::string_view kDMModelInfoTableLocationDidChangeNotification;
extern DMF_EXPORT const std::string_view kDMId;
extern DMF_EXPORT const std::string_view kDMName;
extern DMF_EXPORT const std::string_view kDMType;
extern DMF_EXPORT const std::string_view kDMPortOverrideAlways;
extern DMF_EXPORT const std::string_view kDMPortOverrideNever;
extern DMF_EXPORT const std::string_view kDMPlistTag;
extern DMF_EXPORT const std::string_view kDMXMLTag;

/// I/O channel kinds: keys of a transport's channel description.
extern DMF_EXPORT const std::string_view kDMUSBChannelKey;
extern DMF_EXPORT const std::string_view kDMUSBExcludeChannelKey;
extern DMF_EXPORT const std::string_view kDMIPChannelKey;
extern DMF_EXPORT const std::string_view kDMBluetoothChannelKey;
extern DMF_EXPORT const std::string_view kDMDot4ChannelKey;
extern DMF_EXPORT const std::string_view kDMGGWChannelKey;
extern DMF_EXPORT const std::string_view kDMBiDiChannelKey;
extern DMF_EXPORT const std::string_view kDMStubChannelKey;

/// Data channel names.
extern DMF_EXPORT const std::string_view kDMPrintChannelName;
extern DMF_EXPORT const std::string_view kDMScanChannelName;
extern DMF_EXPORT const std::string_view kDMEWSChannelName;
extern DMF_EXPORT const std::string_view kDMEchoChannelName;
extern DMF_EXPORT const std::string_view kDMPMLChannelName;
extern DMF_EXPORT const std::string_view kDMLEDMChannelName;
extern DMF_EXPORT const std::string_view kDMConfigDownloadChannelName;
extern DMF_EXPORT const std::string_view kDMConfigUploadChannelName;

/// Discovery: notifications, the private run-loop mode, protocol and channel names.
extern DMF_EXPORT const std::string_view kDMDiscoveryWillStartNotification;
extern DMF_EXPORT const std::string_view kDMDiscoveryDidFindServiceNotification;
extern DMF_EXPORT const std::string_view kDMDiscoveryDidRemoveServiceNotification;
extern DMF_EXPORT const std::string_view kDMDiscoveryDidNotDiscoverNotification;
extern DMF_EXPORT const std::string_view kDMDiscoveryDidStopNotification;
extern DMF_EXPORT const std::string_view kDMDiscoveryFilterDidChangeNotification;
extern DMF_EXPORT const std::string_view kDMDiscoveryPerformMode;
extern DMF_EXPORT const std::string_view kDMDiscoveryPrintProtocolName;
extern DMF_EXPORT const std::string_view kDMDiscoveryPMLProtocolName;
extern DMF_EXPORT const std::string_view kDMDiscoveryHDTProtocolName;
extern DMF_EXPORT const std::string_view kDMDiscoveryVstatusProtocolName;
extern DMF_EXPORT const std::string_view kDMDiscoveryEWSProtocolName;
extern DMF_EXPORT const std::string_view kDMDiscoveryPrintChannelName;
extern DMF_EXPORT const std::string_view kDMDiscoveryEWSChannelName;
extern DMF_EXPORT const std::string_view kDMRegisterFunctionalFactoriesNotification;
/// The key of the service info in the user info of the discovery notifications.
extern DMF_EXPORT const std::string_view kDMServiceInfoKey;
/// The delay, in seconds, after which a discovery report is delivered to its run loop.
extern DMF_EXPORT const double kDMDiscoveryFireInterval;
/// Whether discovery sessions are started.
extern DMF_EXPORT const std::int32_t kDMDiscoverySessionsNotStarted;
extern DMF_EXPORT const std::int32_t kDMDiscoverySessionsAreStarted;

/// Plug-ins: keys of a plug-in's description.
extern DMF_EXPORT const std::string_view kDMPlugInClasses;
extern DMF_EXPORT const std::string_view kDMPlugInProtocolName;
extern DMF_EXPORT const std::string_view kDMPlugInProtocol2ImplementorMap;
extern DMF_EXPORT const std::string_view kDMMockScheme;
extern DMF_EXPORT const std::string_view kDMMockIOProvider;
extern DMF_EXPORT const std::string_view kDMMockFactories;

/// Errors and data-channel reports: the same keys in an error's user info and in a plain dictionary handed to a
/// delegate. The code is a number, the description a text, the object what failed or the underlying error. A channel's
/// report adds its state (1 a failed read, 2 a failed write) and the bytes that were done.
extern DMF_EXPORT const std::string_view kDMErrorCode;
extern DMF_EXPORT const std::string_view kDMErrorDescription;
extern DMF_EXPORT const std::string_view kDMErrorObject;
extern DMF_EXPORT const std::string_view kDMDataChannelDomain;
extern DMF_EXPORT const std::string_view kDMDeviceSettingsDomain;
extern DMF_EXPORT const std::string_view kDMDataChannelState;
extern DMF_EXPORT const std::string_view kDMDataChannelProcessedDataLength;

/// Logging: the cache key of the configured level, the file that holds it, a thread's stack of loggers.
extern DMF_EXPORT const std::string_view kDMLogLevelEnvironment;
extern DMF_EXPORT const std::string_view kDMLogConfigPath;
extern DMF_EXPORT const std::string_view kDMLogPoolThreadLogsKey;

/// Universal URIs.
extern DMF_EXPORT const std::string_view kDMUniversalURIToken;
extern DMF_EXPORT const std::string_view kDMUniversalURIVersion;
