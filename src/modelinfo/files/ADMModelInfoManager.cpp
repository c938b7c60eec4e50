#include <dmf/ADMModelInfoManager.h>

#include <dmf/ADMModelInfo.h>
#include <dmf/platform/Error.h>

ADMModelInfoManager::ADMModelInfoManager() = default;
ADMModelInfoManager::~ADMModelInfoManager() = default;

std::shared_ptr<ADMModelInfoManager> ADMModelInfoManager::sharedManager()
{
    return ADMPrivateModelInfoManager::sharedManager();
}

std::shared_ptr<ADMModelInfoManager> ADMModelInfoManager::init()
{
    return sharedManager();
}

bool ADMModelInfoManager::registerTable(std::optional<std::string_view>, std::optional<std::string_view>)
{
    throw dmf::UnrecognizedOperation("ADMModelInfoManager", "registerTable:location:");
}

std::shared_ptr<ADMCoreModelInfo> ADMModelInfoManager::modelInfoWithModelName(std::string_view)
{
    throw dmf::UnrecognizedOperation("ADMModelInfoManager", "modelInfoWithModelName:");
}
