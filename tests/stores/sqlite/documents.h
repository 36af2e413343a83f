#pragma once

#include <stores/sqlite/sqlite_store.h>
#include <tests/kit/store/document_states.h>

#include <filesystem>
#include <string>

/// What the tests of the SQLite store save, and what they find.
namespace TalVcs::Testing {

inline std::string DescribeFile(const std::filesystem::path& path,
                                const Kit::SqliteOptions& options = {.create = false}) {
  Kit::Result<Kit::SqliteStore> store = Kit::SqliteStore::Open(path, options);
  return store ? DescribeStore(*store) : Kit::ToString(store.error().code);
}

}  // namespace TalVcs::Testing
