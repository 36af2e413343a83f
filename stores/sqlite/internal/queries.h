#pragma once

#include <cstddef>

namespace TalVcs::Kit::Sqlite {

/// The statements that a store runs. Each is prepared when it is first used, and kept.
enum class Query {
  ApplicationId,
  UserVersion,
  CountTables,
  BeginReading,
  BeginWriting,
  Commit,
  Rollback,
  HasObject,
  ReadObject,
  SizeOfObject,
  InsertObject,
  ListIds,
  ListObjects,
  DeleteObject,
  Heads,
  Head,
  SetHead,
  DeleteHead,
  Meta,
  SetMeta,
  Value,
  SetValue,
  DeleteValue,
};

inline constexpr std::size_t kQueryCount = static_cast<std::size_t>(Query::DeleteValue) + 1;

/// Returns the text of the statement.
const char* TextOf(Query query) noexcept;

/// Creates the tables. docs/formats.md describes them.
extern const char kCreateTables[];

}  // namespace TalVcs::Kit::Sqlite
