#pragma once

#include <cstddef>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <dmf/ADMSecureData.h>
#include <dmf/platform/Export.h>

/// Knows how the files of the model database are named on disk and which device families there are. Thread-safe.
///
/// Files are addressed by logical names of components joined by "/", without regard to letter case. Each component is
/// stored as the hexadecimal text of its enciphered lower-case form.
class DMF_EXPORT ADMInfoFileManager {
public:
    /// Model files of more bytes than this are not read: a tree takes many times the memory of its file.
    static constexpr std::size_t kMaximumFileSize = 16 << 20;

    /// Without a place for the library's own table there are no families.
    ADMInfoFileManager();
    /// `pathToFiles` is the folder that holds the library's own table "DMF".
    explicit ADMInfoFileManager(std::string_view pathToFiles);
    ~ADMInfoFileManager();
    ADMInfoFileManager(const ADMInfoFileManager&) = delete;
    ADMInfoFileManager& operator=(const ADMInfoFileManager&) = delete;

    /// The stored path of a logical name, relative to its table's folder; nothing, with a line in the log, when no
    /// component of the name can be stored. Reads no folder.
    [[nodiscard]] std::optional<std::string> realFileNameForFile(std::string_view file);

    /// The names, in lower case, of the device families that the library's own table describes, in the order of their
    /// stored names. The folder is read once, by the first call.
    [[nodiscard]] const std::vector<std::string>& familyList();

    /// The first listed family whose name occurs anywhere in the model's name, whatever the letter case; nothing, with
    /// a line in the log, when there is none.
    [[nodiscard]] std::optional<std::string> familyNameForModel(std::string_view modelName);

private:
    [[nodiscard]] const std::string& storedName(const std::string& component); // with lock_ held
    [[nodiscard]] std::optional<std::vector<std::string>> readFamilies() const;

    const ADMSecureData secureData_{};
    std::string ownTable_; // the folder of the library's own table; empty for none; constant once made
    std::mutex lock_;
    std::map<std::string, std::string, std::less<>> storedNames_; // by component; guarded by lock_
    std::optional<std::vector<std::string>> families_;            // guarded by lock_; constant once filled
};
