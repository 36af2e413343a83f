#pragma once

#include <kit/text/result.h>

namespace TalVcs::Kit::Sqlite {

class Database;

/// Returns whether the log beside the file belongs to another version of it: the file says that it
/// has no log, and the log has pages that the file lacks; or it says that it has one, and the
/// number `Meta::Log` in it isn't one that this log continues. SQLite would mix both versions.
///
/// Comes before the first change. A log that is missing, empty or without a whole transaction
/// belongs to any file. Cost: reads the log, twice at most unless others change it.
Result<bool> HasStaleLog(Database& database);

}  // namespace TalVcs::Kit::Sqlite
