#pragma once

namespace TalVcs::Kit::Sqlite {

class Database;

/// Gives free pages back to the system if they are a quarter of the file or more, in transactions
/// of their own. Leaves the rest for a later time if one fails. Does nothing in a host's database,
/// and in a file of the first version that wasn't compacted since.
void GiveBackPages(Database& database);

}  // namespace TalVcs::Kit::Sqlite
