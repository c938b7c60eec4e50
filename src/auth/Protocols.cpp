#include <dmf/ADMUsernameAndPasswordAuthenticationInfo.h>
#include <dmf/ADMWEPAuthenticationInfo.h>
#include <dmf/ADMWPAAuthenticationInfo.h>
#include <dmf/IDMAuthenticationContext.h>
#include <dmf/IDMProtectionSpace.h>

#include <array>

// The descriptors of the interfaces of this area. All constant data.
namespace {

using Operations = std::string_view;

constexpr std::array<Operations, 1> kWEPOperations{"WEPKeys"};
constexpr dmf::Protocol kWEP("IDMWEPAuthenticationInfo", {}, kWEPOperations);

constexpr std::array<Operations, 1> kWPAOperations{"passPhrase"};
constexpr dmf::Protocol kWPA("IDMWPAAuthenticationInfo", {}, kWPAOperations);

constexpr std::array<Operations, 2> kUsernameAndPasswordOperations{"username", "password"};
constexpr dmf::Protocol kUsernameAndPassword("IDMUsernameAndPasswordAuthenticationInfo", {},
                                             kUsernameAndPasswordOperations);

constexpr std::array<Operations, 3> kProtectionSpaceOperations{"authenticationType", "realm", "setRealm:"};
constexpr dmf::Protocol kProtectionSpace("IDMProtectionSpace", {}, kProtectionSpaceOperations);

constexpr std::array<Operations, 9> kAuthenticationContextOperations{
    "addAuthenticationInfo:",
    "authenticationInfoWithType:",
    "authenticationInfoWithType:searchKeychain:",
    "restoreAuthenticationInfoWithType:",
    "authenticationInfos",
    "allAuthenticationInfos",
    "removeAuthenticationInfoWithType:",
    "removeAllAuthenticationInfos",
    "setAuthenticationContext:",
};
constexpr dmf::Protocol kAuthenticationContext("IDMAuthenticationContext", {}, kAuthenticationContextOperations);

} // namespace

const dmf::Protocol& IDMWEPAuthenticationInfo::protocol()
{
    return kWEP;
}
IDMWEPAuthenticationInfo::~IDMWEPAuthenticationInfo() = default;

const dmf::Protocol& IDMWPAAuthenticationInfo::protocol()
{
    return kWPA;
}
IDMWPAAuthenticationInfo::~IDMWPAAuthenticationInfo() = default;

const dmf::Protocol& IDMUsernameAndPasswordAuthenticationInfo::protocol()
{
    return kUsernameAndPassword;
}
IDMUsernameAndPasswordAuthenticationInfo::~IDMUsernameAndPasswordAuthenticationInfo() = default;

const dmf::Protocol& IDMProtectionSpace::protocol()
{
    return kProtectionSpace;
}
IDMProtectionSpace::~IDMProtectionSpace() = default;

const dmf::Protocol& IDMAuthenticationContext::protocol()
{
    return kAuthenticationContext;
}
IDMAuthenticationContext::~IDMAuthenticationContext() = default;
