#include <dmf/DMKeys.h>

constinit const std::string_view kUSBConnectionType = "USB";
constinit const std::string_view kSocketConnectionType = "IP";
constinit const std::string_view kLPDConnectionType = "LPD";
constinit const std::string_view kIPPConnectionType = "IPP";
constinit const std::string_view kQLIPConnectionType = "QLIP";
constinit const std::string_view kRendezvousConnectionType = "Rendezvous";
constinit const std::string_view kAppleTalkConnectionType = "AppleTalk";
constinit const std::string_view kBluetoothConnectionType = "Bluetooth";

constinit const std::string_view kPrinterDeviceClass = "com.ql.printer";
constinit const std::string_view kScannerDeviceClass = "com.ql.scanner";
constinit const std::string_view kFaxDeviceClass = "com.ql.fax";
constinit const std::string_view kStorageDeviceClass = "com.ql.storage";

constinit const std::string_view kIPAddressParam = "IPAddress";
constinit const std::string_view kAllIPAddressesParam = "AllIPAddresses";
constinit const std::string_view kIPPortParam = "IPPort";
constinit const std::string_view kHostNameParam = "HostName";
constinit const std::string_view kMACAddressParam = "MACAddress";
constinit const std::string_view kSerialNumberParam = "SerialNumber";
constinit const std::string_view kAppleTalkZoneParam = "AppleTalkZone";
constinit const std::string_view kUSBVendorIDParam = "USBVendorID";
constinit const std::string_view kUSBProductIDParam = "USBProductID";
constinit const std::string_view kUSBLocationIDParam = "USBLocationID";
constinit const std::string_view kInterfaceNumberParam = "InterfaceNumber";
constinit const std::string_view kRendezvousAddressParam = "RendezvousAddress";
constinit const std::string_view kBonjourDomainNameParam = "BonjourDomainName";
constinit const std::string_view kBonjourServiceDomainParam = "BonjourServiceDomain";
constinit const std::string_view kBonjourServiceNameParam = "BonjourServiceName";
constinit const std::string_view kBonjourServiceTypeParam = "BonjourServiceType";
constinit const std::string_view kDMServiceConnectionType = "DMServiceConnectionType";
constinit const std::string_view kDMNoServiceReachabilityCheckParameterKey = "DMNoServiceReachabilityCheckParameterKey";
constinit const std::string_view kDMParameterPollingIntervalKey = "DMParameterPollingInterval";
constinit const std::string_view kDMParameterOperationTimeoutKey = "DMParameterOperationTimeout";
constinit const std::string_view kDMProtectionSpaceKey = "DMProtectionSpaceKey";

constinit const std::string_view kURIProp = "URI";
constinit const std::string_view kConnectionTypeProp = "connectionType";
constinit const std::string_view kDeviceClassProp = "deviceClass";
constinit const std::string_view kDeviceNameProp = "deviceName";
constinit const std::string_view kModelNameProp = "modelName";
constinit const std::string_view kServiceNameProp = "serviceName";
constinit const std::string_view kVendorNameProp = "vendorName";
constinit const std::string_view kParamsProp = "params";

constinit const std::string_view kDMInformationKey = "Information";
constinit const std::string_view kDMFunctionalInterface = "FunctionalInterface";
constinit const std::string_view kDMConnectionKey = "Connection";
constinit const std::string_view kDMConnectionListKey = "ConnectionList";
constinit const std::string_view kDMProtocolSpecificConnectionList = "ProtocolSpecificConnectionList";
constinit const std::string_view kDMProtocolKey = "Protocol";
constinit const std::string_view kDMProtocolsListKey = "ProtocolsList";
constinit const std::string_view kDMProtocolImplementorKey = "ImplementorClass";
constinit const std::string_view kDMClassNameKey = "ClassName";
constinit const std::string_view kDMTransportKey = "Transport";
constinit const std::string_view kDMIOChannelKey = "IOChannel";
constinit const std::string_view kDMServiceKey = "Service";
constinit const std::string_view kDMServiceListKey = "ServiceList";
constinit const std::string_view kDMFeatureKey = "Feature";
constinit const std::string_view kDMFeaturesListKey = "FeaturesList";
constinit const std::string_view kDMPropertyKey = "Property";
constinit const std::string_view kDMSpecificInfoKey = "SpecificInfo";
constinit const std::string_view kDMParentNameKey = "Parent";
constinit const std::string_view kDMRemoveKey = "removedKeys";
constinit const std::string_view kDMFamilyKey = "Family";
constinit const std::string_view kDMFamilyName = "FamilyName";
constinit const std::string_view kDMModelName = "ModelName";
constinit const std::string_view kDMModelIdKey = "ModelId";
constinit const std::string_view kDMModelCodeNameKey = "ModelCodeName";
constinit const std::string_view kDMVendorNameKey = "VendorName";
constinit const std::string_view kDMDeviceClassKey = "DeviceClass";
constinit const std::string_view kDMPathToIconKey = "IconPath";
constinit const std::string_view kDMUtilityNameKey = "UtilityName";
constinit const std::string_view kDMUtilitySignatureKey = "UtilitySignature";
constinit const std::string_view kDMFFeaturesKey = "SupportedDeviceClasses";
constinit const std::string_view kDMFKey = "DMF";
constinit const std::string_view kDMFTableName = "DMFPrivate";
constinit const std::string_view kDMModelInfoKey = "ModelInfo";
constinit const std::string_view kDMDefaultModelFile = "Default";
constinit const std::string_view kDMDefaultModelName = "Default";
constinit const std::string_view kDMPathToModelInfoFilesKey = "pathToModelInfoFiles";
constinit const std::string_view kDMModelInfoChangedTableKey = "changedTable";
constinit const std::string_view kDMModelInfoTableLocationDidChangeNotification =
    "kDMModelInfoTableLocationDidChangeNotification";
constinit const std::string_view kDMId = "id";
constinit const std::string_view kDMName = "name";
constinit const std::string_view kDMType = "type";
constinit const std::string_view kDMPortOverrideAlways = "always";
constinit const std::string_view kDMPortOverrideNever = "never";
constinit const std::string_view kDMPlistTag = "<plist";
constinit const std::string_view kDMXMLTag = "<?xml";

constinit const std::string_view kDMUSBChannelKey = "USB";
constinit const std::string_view kDMUSBExcludeChannelKey = "USBExclude";
constinit const std::string_view kDMIPChannelKey = "IP";
constinit const std::string_view kDMBluetoothChannelKey = "Bluetooth";
constinit const std::string_view kDMDot4ChannelKey = "Dot4";
constinit const std::string_view kDMGGWChannelKey = "GGW";
constinit const std::string_view kDMBiDiChannelKey = "BiDiChannel";
constinit const std::string_view kDMStubChannelKey = "Stub";

constinit const std::string_view kDMPrintChannelName = "Print";
constinit const std::string_view kDMScanChannelName = "Scan";
constinit const std::string_view kDMEWSChannelName = "Embedded Web Server";
constinit const std::string_view kDMEchoChannelName = "Echo";
constinit const std::string_view kDMPMLChannelName = "PML";
constinit const std::string_view kDMLEDMChannelName = "LEDM";
constinit const std::string_view kDMConfigDownloadChannelName = "QL-CONFIGURATION-DOWNLOAD";
constinit const std::string_view kDMConfigUploadChannelName = "QL-CONFIGURATION-UPLOAD";

constinit const std::string_view kDMDiscoveryWillStartNotification = "DMDiscoveryWillStartNotification";
constinit const std::string_view kDMDiscoveryDidFindServiceNotification = "DMDiscoveryDidFindServiceNotification";
constinit const std::string_view kDMDiscoveryDidRemoveServiceNotification = "DMDiscoveryDidRemoveServiceNotification";
constinit const std::string_view kDMDiscoveryDidNotDiscoverNotification = "DMDiscoveryDidNotDiscoverNotification";
constinit const std::string_view kDMDiscoveryDidStopNotification = "DMDiscoveryDidStopNotification";
constinit const std::string_view kDMDiscoveryFilterDidChangeNotification = "DMDiscoveryFilterDidChangeNotification";
constinit const std::string_view kDMDiscoveryPerformMode = "DMDiscoveryMode";
constinit const std::string_view kDMDiscoveryPrintProtocolName = "PRINT";
constinit const std::string_view kDMDiscoveryPMLProtocolName = "PML";
constinit const std::string_view kDMDiscoveryHDTProtocolName = "HDT";
constinit const std::string_view kDMDiscoveryVstatusProtocolName = "VSTATUS";
constinit const std::string_view kDMDiscoveryEWSProtocolName = "EWS";
constinit const std::string_view kDMDiscoveryPrintChannelName = "Print";
constinit const std::string_view kDMDiscoveryEWSChannelName = "Embedded Web Server";
constinit const std::string_view kDMRegisterFunctionalFactoriesNotification =
    "kDMRegisterFunctionalFactoriesNotification";
constinit const std::string_view kDMServiceInfoKey = "DMServiceInfoKey";

constinit const double kDMDiscoveryFireInterval = 1e-06;
constinit const std::int32_t kDMDiscoverySessionsNotStarted = 0;
constinit const std::int32_t kDMDiscoverySessionsAreStarted = 1;

constinit const std::string_view kDMPlugInClasses = "DMPlugInClasses";
constinit const std::string_view kDMPlugInProtocolName = "DMPlugInProtocolName";
constinit const std::string_view kDMPlugInProtocol2ImplementorMap = "DMPlugInProtocol2ImplementorMap";
constinit const std::string_view kDMMockScheme = "DMMockScheme";
constinit const std::string_view kDMMockIOProvider = "DMMockIOProvider";
constinit const std::string_view kDMMockFactories = "DMMockFactories";

constinit const std::string_view kDMErrorCode = "DMErrorCode";
constinit const std::string_view kDMErrorDescription = "DMErrorDescription";
constinit const std::string_view kDMErrorObject = "DMErrorObject";
constinit const std::string_view kDMDataChannelDomain = "com.ql.dmf.DataChannel.ErrorDomain";
constinit const std::string_view kDMDeviceSettingsDomain = "com.ql.dmf.Core.DeviceSettings";
constinit const std::string_view kDMDataChannelState = "State";
constinit const std::string_view kDMDataChannelProcessedDataLength = "ProcessedDataLength";

constinit const std::string_view kDMLogLevelEnvironment = "DMLogLevel";
constinit const std::string_view kDMLogConfigPath = "/var/log/qlio/DMFLogLevel";
constinit const std::string_view kDMLogPoolThreadLogsKey = "DMLogPoolThreadLogs";

constinit const std::string_view kDMUniversalURIToken = "QLDMF";
constinit const std::string_view kDMUniversalURIVersion = "1";
