#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace TalVcs::Kit::Sqlite {

/// The statements that a store runs. Each is prepared when it is first used, and kept.
enum class Query {
  ApplicationId,
  UserVersion,
  TextEncoding,
  CountTables,
  CountOwnTables,
  CountOtherIndexes,
  TableText,
  JournalMode,
  CountPages,
  PageSize,
  CountFreePages,
  BeginReading,
  BeginWriting,
  Commit,
  Rollback,
  Savepoint,
  ReleaseSavepoint,
  RollbackToSavepoint,
  FindObject,
  ReadObject,
  ReadObjectByNumber,
  SizeOfObject,
  InsertObject,
  UpdateObject,
  CountObjects,
  ListIds,
  ListObjects,
  DeleteObject,
  ReadPieces,
  InsertPiece,
  DeletePieces,
  Heads,
  Head,
  SetHead,
  DeleteHead,
  Meta,
  SetMeta,
  ListValues,
  Value,
  SetValue,
  DeleteValue,
};

inline constexpr std::size_t kQueryCount = static_cast<std::size_t>(Query::DeleteValue) + 1;

/// Returns the text of the statement, with "$" in place of the prefix of the tables.
const char* TextOf(Query query) noexcept;

/// Returns the text with the prefix in place of each "$".
std::string WithPrefix(std::string_view text, std::string_view prefix);

}  // namespace TalVcs::Kit::Sqlite
