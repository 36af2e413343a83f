#pragma once

#include <kit/text/result.h>

namespace TalVcs::Kit::Sqlite {

class Database;

/// Returns whether the log beside the file belongs to another version of it: the file says that it
/// has no log, and the log has pages that the file lacks. SQLite would mix both versions.
///
/// Comes before the first transaction. A log that is missing, empty or without a whole transaction
/// belongs to any file. Cost: reads the log once, but only if the file says that it has none.
Result<bool> HasStaleLog(Database& database);

}  // namespace TalVcs::Kit::Sqlite
