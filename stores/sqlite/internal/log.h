#pragma once

#include <kit/text/result.h>

namespace TalVcs::Kit::Sqlite {

class Database;

// The write-ahead log of a file. While the file is in log mode, changes may be in the log alone,
// and the file without its log is an older state, or has pages of several. So the number
// `Meta::Log` in the file says whether it has a log and which: its lowest bit is 1 as soon as the
// log is on the medium, and 0 again once the log is in the file and no more follows. The others
// count: they begin at random with each new log, and each transaction adds one.

/// Returns true if the file is in log mode.
Result<bool> HasLog(Database& database);

/// Uses a write-ahead log from now on. Fails with `Unsupported` if the file system can't.
Status EnterLog(Database& database);

/// Counts the running write transaction in the log, if there is one.
Status MarkLog(Database& database);

/// Moves the log into the file and removes it, if there is one and no other connection uses it.
/// Otherwise the log stays, and the last connection removes it.
void LeaveLog(Database& database);

/// Fails with `Damaged` if the log says that the file has more pages than both have bytes for. The
/// next change would make the file as long as that.
Status CheckLength(Database& database);

/// Returns true if changes were in a log that `hadLog` says wasn't there when the file was opened.
Result<bool> LacksLog(Database& database, bool hadLog);

}  // namespace TalVcs::Kit::Sqlite
