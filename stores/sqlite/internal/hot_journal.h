#pragma once

#include <kit/text/result.h>

namespace TalVcs::Kit::Sqlite {

class Database;

/// Fails with `Damaged` if the journal beside the file is one that no store leaves there, and that
/// would do harm when SQLite undoes an incomplete change by it: one that names another file, which
/// SQLite removes afterwards, or one that makes the file longer than the bytes of both.
///
/// Comes before the first transaction. A journal of another connection at work is left alone.
Status CheckJournal(Database& database);

}  // namespace TalVcs::Kit::Sqlite
