#pragma once

#include <kit/text/result.h>

#include <cstdint>
#include <optional>

namespace TalVcs::Kit::Sqlite {

class Database;

/// The numbers that a document has once.
enum class Meta {
  HeadSum,   ///< The checksums of all heads, combined by exclusive or.
  Removals,  ///< How often objects were removed.
  Log,       ///< Not 0 if a write-ahead log may have changes that the file lacks; see log.h.
  Version,   ///< The version of the tables in a host's database.
};

/// Fails with `Damaged` if there is no such number.
Result<std::uint64_t> ReadMeta(Database& database, Meta meta);
/// Returns nothing if there is no such number.
Result<std::optional<std::uint64_t>> FindMeta(Database& database, Meta meta);
/// Needs a write transaction.
Status WriteMeta(Database& database, Meta meta, std::uint64_t value);

}  // namespace TalVcs::Kit::Sqlite
