#include <dmf/ADMInfoFileManager.h>

#include <algorithm>
#include <filesystem>
#include <system_error>

#include <dmf/DMDataExtension.h>
#include <dmf/DMKeys.h>
#include <dmf/DMStringExtension.h>
#include <dmf/platform/Unicode.h>

#include "modelinfo/files/ModelInfoLog.h"

namespace {

constexpr std::int32_t kNamesCipher = 2;

std::string enciphered(const ADMSecureData& secureData, const std::string& component)
{
    const auto data = secureData.encryptData(dmf::Data::fromText(component), kNamesCipher);
    return data ? com_ql_dmf_hexadecimalRepresentationString(*data) : std::string();
}

std::optional<std::string> deciphered(const ADMSecureData& secureData, const std::string& storedName)
{
    const auto stored = com_ql_dmf_dataFromHexadecimalRepresentation(storedName);
    const auto data = stored ? secureData.decryptData(*stored, kNamesCipher) : std::nullopt;
    if (!data || !dmf::isValidUtf8(data->text()))
        return std::nullopt;
    return std::string(data->text());
}

} // namespace

ADMInfoFileManager::ADMInfoFileManager() = default;

ADMInfoFileManager::ADMInfoFileManager(std::string_view pathToFiles)
    : ownTable_(std::string(pathToFiles) + '/' + std::string(kDMFKey))
{
}

ADMInfoFileManager::~ADMInfoFileManager() = default;

std::optional<std::string> ADMInfoFileManager::realFileNameForFile(std::string_view file)
{
    const std::string name = dmf::lowercased(file);
    std::string stored;
    {
        std::lock_guard guard(lock_);
        for (std::size_t begin = 0; begin <= name.size();) {
            const std::size_t end = std::min(name.find('/', begin), name.size());
            const std::string& component = storedName(name.substr(begin, end - begin));
            if (!component.empty() && !stored.empty())
                stored += '/';
            stored += component;
            begin = end + 1;
        }
    }
    if (!stored.empty())
        return stored;
    dmf::internal::logModelInfo("errors", "ModelInfo: unknown real file name for file with name '%@'.", name);
    return std::nullopt;
}

const std::string& ADMInfoFileManager::storedName(const std::string& component)
{
    const auto known = storedNames_.find(component);
    if (known != storedNames_.end())
        return known->second;
    return storedNames_.emplace(component, enciphered(secureData_, component)).first->second;
}

const std::vector<std::string>& ADMInfoFileManager::familyList()
{
    std::lock_guard guard(lock_);
    if (!families_)
        families_ = readFamilies();
    static const std::vector<std::string> unknown;
    return families_ ? *families_ : unknown;
}

std::optional<std::vector<std::string>> ADMInfoFileManager::readFamilies() const
{
    std::vector<std::string> families;
    if (ownTable_.empty())
        return families;
    const std::string folder = ownTable_ + '/' + enciphered(secureData_, dmf::lowercased(kDMFamilyName));
    // What lies in folders below is no family: a path with a "/" is no hexadecimal text.
    std::vector<std::string> storedNames;
    std::error_code failure;
    for (std::filesystem::directory_iterator entry(folder, failure), end; !failure && entry != end;
         entry.increment(failure))
        storedNames.push_back(entry->path().filename().string());
    // Where it could not be read for want of descriptors or memory, it is read by whoever asks next.
    if (failure && failure != std::errc::no_such_file_or_directory && failure != std::errc::not_a_directory)
        return std::nullopt;
    std::sort(storedNames.begin(), storedNames.end());
    for (const std::string& stored : storedNames) {
        if (auto family = deciphered(secureData_, stored))
            families.push_back(*std::move(family));
    }
    return families;
}

std::optional<std::string> ADMInfoFileManager::familyNameForModel(std::string_view modelName)
{
    const std::string name = dmf::lowercased(modelName);
    for (const std::string& family : familyList()) {
        if (dmf::findIgnoringCase(name, family))
            return family;
    }
    dmf::internal::logModelInfo("debug", "ModelInfo: unknown family name of device '%@'", name);
    return std::nullopt;
}
