#pragma once

#include <cstddef>

namespace TalVcs::Kit::Postgres {

/// The statements of the store. Values of a host come in as parameters only.
enum class Sql : unsigned char {
  Begin,
  Commit,
  Rollback,
  SetUp,
  ReadVersion,
  FindSchema,
  FindRepository,
  InsertRepository,
  ReadState,
  LockShared,
  CommitLater,
  LockExclusive,
  BeginPass,
  RaiseEpoch,
  RaiseRemovals,
  FindMissing,
  ReadObjects,
  ReadPieces,
  ReadHistory,
  ReadOpened,
  ReadSizes,
  ListObjects,
  ListNewObjects,
  SaveCondemned,
  InsertObjects,
  CopyObjects,
  InsertLarge,
  InsertPieces,
  CountLive,
  CountThere,
  Condemn,
  TakeDue,
  ForgetCondemned,
  DeletePieces,
  DeleteObjects,
  ReadHeads,
  LockHeads,
  InsertHeads,
  UpdateHeads,
  DeleteHeads,
  ReadValue,
  SetValue,
  DeleteValue,
  Notify,
  Listen,
  Count,
};

inline constexpr std::size_t kStatements = static_cast<std::size_t>(Sql::Count);

/// Returns the text of a statement.
const char* TextOf(Sql statement) noexcept;

}  // namespace TalVcs::Kit::Postgres
