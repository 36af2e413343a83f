#pragma once

#include <kit/text/progress.h>
#include <kit/text/result.h>
#include <stores/sqlite/sqlite_store.h>

#include <filesystem>

namespace TalVcs::Kit::Sqlite {

class Database;

/// Copies a document into a new file at `target`, which must not exist. After a failure there is no
/// such file. `options` are those of the copy.
Status CopyDocument(Database& source, const std::filesystem::path& target,
                    const SqliteOptions& options, const Progress& progress);

/// Replaces the document at `path` by a compact copy of it. Other store objects can't write
/// meanwhile.
Status CompactDocument(const std::filesystem::path& path, const SqliteOptions& options,
                       const Progress& progress);

}  // namespace TalVcs::Kit::Sqlite
