#pragma once

#include <kit/text/error.h>

#include <string>

struct sqlite3;

namespace TalVcs::Kit::Sqlite {

/// What a store was doing when SQLite failed.
enum class Task { Open, Read, Save };

/// Returns the error for a result code of SQLite other than success. `database` may be null; the
/// code is the last one that it returned. Out of memory is thrown as `std::bad_alloc`; where
/// SQLite says so of a damaged file although there is memory, the error is `Unavailable`.
Error ErrorFromSqlite(sqlite3* database, int code, Task task, const std::string& file);

/// Returns an error of `code` about `file`, whose message ends with `reason`.
Error MakeError(ErrorCode code, Task task, const std::string& file, const std::string& reason);

}  // namespace TalVcs::Kit::Sqlite
