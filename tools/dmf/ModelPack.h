#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <dmf/platform/Data.h>

namespace dmf::tool {

/// Makes and opens databases of model files. In a source each file lies at TABLE/COMPONENT/.../NAME.xml or .plist, the
/// path below the table without the ending being its logical name; a database holds the same files enciphered, their
/// names too. Tables are the folders of either; files beside them are left alone.

/// What is wrong with one file: its path in the source, or its table and logical name, or where no name can be made
/// out, its path in the database.
struct ModelProblem {
    std::string file;
    std::string message;
};

struct ModelCounts {
    std::size_t tables = 0;
    std::size_t files = 0; ///< those that were dealt with
    std::uint64_t bytes = 0;
    std::vector<ModelProblem> problems; ///< sorted by file
};

/// One file of a database.
struct ModelEntry {
    std::string table;
    std::string name;           ///< the logical name, in lower case
    std::filesystem::path path; ///< in the database
    dmf::Data contents;         ///< deciphered
    std::string_view ending;    ///< ".plist" or ".xml"
};

struct ModelListing {
    std::vector<ModelEntry> entries; ///< sorted by table and name
    std::vector<ModelProblem> problems;
};

/// Enciphers every file of `source` into `database`, replacing files of the same names; others there stay. A file that
/// cannot be used is a problem and left out, the others are packed.
[[nodiscard]] ModelCounts packModels(const std::filesystem::path& source, const std::filesystem::path& database);

/// Writes every file of `database` in plain text below `target`. A name that would lead outside it is a problem.
[[nodiscard]] ModelCounts unpackModels(const std::filesystem::path& database, const std::filesystem::path& target);

/// The files of `database`, read and deciphered; what does not decipher is a problem.
[[nodiscard]] ModelListing listModels(const std::filesystem::path& database);

/// Looks for everything in `database` that would keep a model from being found or from working: what does not
/// decipher or parse, parents that are missing, of the other format or go round in a circle, connections that name
/// services which the interface does not have, and names that are looked up in lower case but not written so.
[[nodiscard]] ModelCounts verifyModels(const std::filesystem::path& database);

} // namespace dmf::tool
