#pragma once

#include <kit/text/progress.h>
#include <kit/text/result.h>
#include <stores/sqlite/sqlite_store.h>

#include <filesystem>

namespace TalVcs::Kit::Sqlite {

/// Writes what a damaged document has into a new one at `target`, which must not exist. After a
/// failure there is no such file. `options` are those of the new document.
Result<SqliteSalvage> SalvageDocument(const std::filesystem::path& path,
                                      const std::filesystem::path& target,
                                      const SqliteOptions& options, const Progress& progress);

}  // namespace TalVcs::Kit::Sqlite
