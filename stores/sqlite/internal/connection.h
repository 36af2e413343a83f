#pragma once

struct sqlite3;

namespace TalVcs::Kit::Sqlite {

/// Sets a connection up for files that may come from a stranger: no SQL in the file runs, and
/// statements and numbers have limits. Returns a result code of SQLite.
int RefuseForeignSql(sqlite3* connection);

}  // namespace TalVcs::Kit::Sqlite
