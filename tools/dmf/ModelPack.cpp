#include "ModelPack.h"

#include <algorithm>
#include <fstream>
#include <set>
#include <system_error>
#include <utility>

#include <dmf/ADMInfoFileManager.h>
#include <dmf/ADMModelInfoHandlerFactory.h>
#include <dmf/ADMSecureData.h>
#include <dmf/DMStringExtension.h>
#include <dmf/platform/Unicode.h>

#include "FileMask.h"

namespace fs = std::filesystem;

namespace dmf::tool {

namespace {

using Format = ADMModelInfoHandlerFactory::Format;

constexpr std::int32_t kContentsCipher = 0;
constexpr std::int32_t kNamesCipher = 2;

std::string_view endingOf(const dmf::Data& contents)
{
    switch (ADMModelInfoHandlerFactory::infoFormatForData(contents)) {
    case Format::propertyList: return ".plist";
    case Format::xml: return ".xml";
    case Format::unknown: break;
    }
    return "";
}

std::optional<dmf::Data> readFile(const fs::path& path)
{
    std::error_code failure;
    const std::uintmax_t size = fs::is_regular_file(path, failure) ? fs::file_size(path, failure) : 0;
    std::ifstream file(path, std::ios::binary);
    if (failure || !file || size > ADMInfoFileManager::kMaximumFileSize)
        return std::nullopt;
    std::vector<std::uint8_t> bytes(static_cast<std::size_t>(size));
    file.read(reinterpret_cast<char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
    bytes.resize(static_cast<std::size_t>(file.gcount()));
    return dmf::Data(std::move(bytes));
}

/// Writes beside the file and then puts the new one in its place, so that no reader ever finds half a file.
bool writeFile(const fs::path& path, const dmf::Data& contents)
{
    const FileMask mask;
    std::error_code failure;
    fs::create_directories(path.parent_path(), failure);
    const fs::path draft = fs::path(path).concat(".new");
    {
        std::ofstream file(draft, std::ios::binary | std::ios::trunc);
        file << contents.text();
        if (!file.flush())
            return false;
    }
    fs::rename(draft, path, failure);
    if (failure)
        fs::remove(draft, failure);
    return !failure;
}

std::vector<fs::path> tablesOf(const fs::path& folder, std::vector<ModelProblem>& problems)
{
    std::vector<fs::path> tables;
    std::error_code failure;
    for (fs::directory_iterator entry(folder, failure), end; !failure && entry != end; entry.increment(failure)) {
        if (entry->is_directory() && !entry->path().filename().string().starts_with('.'))
            tables.push_back(entry->path());
    }
    if (failure)
        problems.push_back({folder.string(), "cannot be read: " + failure.message()});
    std::sort(tables.begin(), tables.end());
    return tables;
}

std::vector<fs::path> filesOf(const fs::path& table, std::vector<ModelProblem>& problems)
{
    std::vector<fs::path> files;
    std::error_code failure;
    for (fs::recursive_directory_iterator entry(table, failure), end; !failure && entry != end;
         entry.increment(failure)) {
        if (!entry->is_directory() && !entry->path().filename().string().starts_with('.'))
            files.push_back(entry->path());
    }
    if (failure)
        problems.push_back({table.string(), "cannot be read: " + failure.message()});
    std::sort(files.begin(), files.end());
    return files;
}

/// Enciphers the files of a source one by one.
class Packer {
public:
    Packer(fs::path source, fs::path database) : source_(std::move(source)), database_(std::move(database)) {}

    ModelCounts pack()
    {
        for (const fs::path& table : tablesOf(source_, counts_.problems)) {
            ++counts_.tables;
            for (const fs::path& file : filesOf(table, counts_.problems)) {
                const std::string problem = packFile(file, table);
                if (!problem.empty())
                    counts_.problems.push_back({file.lexically_relative(source_).string(), problem});
            }
        }
        return std::move(counts_);
    }

private:
    std::string packFile(const fs::path& file, const fs::path& table)
    {
        const auto contents = readFile(file);
        if (!contents)
            return "cannot be read or is too large";
        if (endingOf(*contents).empty())
            return "has neither \"<plist\" nor \"<?xml\" within its first 200 bytes";
        if (file.extension() != endingOf(*contents))
            return "is in the form of a " + std::string(endingOf(*contents)) + " file";
        const std::string name = file.lexically_relative(table).replace_extension().generic_string();
        const auto stored = names_.realFileNameForFile(name);
        const fs::path place = table.filename() / stored.value_or("");
        if (!dmf::isValidUtf8(name) || !stored)
            return "has a name that cannot be stored";
        if (!taken_.insert(place).second)
            return "has the same name as another file; neither letter case nor ending tells files apart";
        const auto enciphered = ADMSecureData().encryptData(*contents, kContentsCipher);
        if (!enciphered || !writeFile(database_ / place, *enciphered))
            return "cannot be written to " + (database_ / place).string();
        ++counts_.files;
        counts_.bytes += enciphered->size();
        return "";
    }

    const fs::path source_;
    const fs::path database_;
    ADMInfoFileManager names_;
    std::set<fs::path> taken_;
    ModelCounts counts_;
};

/// The logical name of a stored path; nothing when a component does not decipher to a name of its own.
std::optional<std::string> logicalName(const fs::path& stored)
{
    std::string name;
    for (const fs::path& component : stored) {
        const auto bytes = com_ql_dmf_dataFromHexadecimalRepresentation(component.string());
        const auto plain = bytes ? ADMSecureData().decryptData(*bytes, kNamesCipher) : std::nullopt;
        const std::string_view text = plain ? plain->text() : std::string_view();
        const bool leadsAway = text == "." || text == ".." || text.find('/') != std::string_view::npos ||
                               text.find('\0') != std::string_view::npos;
        if (text.empty() || leadsAway || !dmf::isValidUtf8(text))
            return std::nullopt;
        name.append(name.empty() ? "" : "/").append(text);
    }
    return name;
}

/// Adds the file to the listing, or what is wrong with it.
void readEntry(ModelListing& listing, const fs::path& file, const fs::path& table)
{
    const std::string tableName = table.filename().string();
    auto name = logicalName(file.lexically_relative(table));
    if (!name) {
        listing.problems.push_back({file.string(), "has a name that does not decipher"});
        return;
    }
    const std::string shown = tableName + '/' + *name;
    const auto stored = readFile(file);
    if (!stored) {
        listing.problems.push_back({shown, "cannot be read or is too large"});
        return;
    }
    if (!endingOf(*stored).empty()) {
        listing.problems.push_back({shown, "is not enciphered"});
        return;
    }
    auto contents = ADMSecureData().decryptData(*stored, kContentsCipher).value_or(dmf::Data());
    const std::string_view ending = endingOf(contents);
    if (ending.empty())
        listing.problems.push_back({shown, "does not decipher to a property list or an XML document"});
    else
        listing.entries.push_back({tableName, *std::move(name), file, std::move(contents), ending});
}

} // namespace

ModelCounts packModels(const fs::path& source, const fs::path& database)
{
    return Packer(source.lexically_normal(), database).pack();
}

ModelListing listModels(const fs::path& database)
{
    ModelListing listing;
    for (const fs::path& table : tablesOf(database, listing.problems)) {
        for (const fs::path& file : filesOf(table, listing.problems))
            readEntry(listing, file, table);
    }
    std::sort(listing.entries.begin(), listing.entries.end(), [](const ModelEntry& left, const ModelEntry& right) {
        return std::tie(left.table, left.name) < std::tie(right.table, right.name);
    });
    return listing;
}

ModelCounts unpackModels(const fs::path& database, const fs::path& target)
{
    ModelListing listing = listModels(database);
    ModelCounts counts{0, 0, 0, std::move(listing.problems)};
    std::set<std::string> tables;
    for (const ModelEntry& entry : listing.entries) {
        tables.insert(entry.table);
        const fs::path file = (target / entry.table / entry.name).concat(entry.ending);
        if (!writeFile(file, entry.contents)) {
            counts.problems.push_back({entry.table + '/' + entry.name, "cannot be written to " + file.string()});
            continue;
        }
        ++counts.files;
        counts.bytes += entry.contents.size();
    }
    counts.tables = tables.size();
    return counts;
}

} // namespace dmf::tool
