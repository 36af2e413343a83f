#include <stores/sqlite/internal/queries.h>

namespace TalVcs::Kit::Sqlite {
const char* TextOf(Query query) noexcept {
  switch (query) {
    case Query::ApplicationId:
      return "PRAGMA main.application_id";
    case Query::UserVersion:
      return "PRAGMA main.user_version";
    case Query::TextEncoding:
      return "PRAGMA main.encoding";
    case Query::CountTables:
      return "SELECT count(*) FROM main.sqlite_schema";
    case Query::CountOwnTables:
      return "SELECT count(*) FROM main.sqlite_schema WHERE name IN"
             " ('$objects', '$objects_by_id', '$pieces', '$heads', '$host_values', '$meta')";
    case Query::CountOtherIndexes:
      return "SELECT count(*) FROM main.sqlite_schema WHERE type = 'index' AND sql IS NOT NULL"
             " AND name <> '$objects_by_id' AND lower(tbl_name) IN"
             " ('$objects', '$pieces', '$heads', '$host_values', '$meta')";
    case Query::TableText:
      return "SELECT sql FROM main.sqlite_schema WHERE name = ?1";
    case Query::JournalMode:
      return "PRAGMA main.journal_mode";
    case Query::CountPages:
      return "PRAGMA main.page_count";
    case Query::PageSize:
      return "PRAGMA main.page_size";
    case Query::CountFreePages:
      return "PRAGMA main.freelist_count";
    case Query::BeginReading:
      return "BEGIN";
    case Query::BeginWriting:
      return "BEGIN IMMEDIATE";
    case Query::Commit:
      return "COMMIT";
    case Query::Rollback:
      return "ROLLBACK";
    case Query::Savepoint:
      return "SAVEPOINT talvcs";
    case Query::ReleaseSavepoint:
      return "RELEASE talvcs";
    case Query::RollbackToSavepoint:
      return "ROLLBACK TO talvcs";
    case Query::FindObject:
      return "SELECT number FROM main.$objects WHERE substr(id, 1, 8) = substr(?1, 1, 8) AND id = "
             "?1";
    case Query::ReadObject:
      return "SELECT number, id, size, encoding, data FROM main.$objects"
             " WHERE substr(id, 1, 8) = substr(?1, 1, 8) AND id = ?1";
    case Query::ReadObjectByNumber:
      return "SELECT number, id, size, encoding, data FROM main.$objects WHERE number = ?1";
    case Query::SizeOfObject:
      return "SELECT size FROM main.$objects"
             " WHERE substr(id, 1, 8) = substr(?1, 1, 8) AND id = ?1";
    case Query::InsertObject:
      return "INSERT INTO main.$objects(number, id, size, encoding, data)"
             " VALUES(?1, ?2, ?3, ?4, ?5)";
    case Query::UpdateObject:
      return "UPDATE main.$objects SET encoding = ?2, data = ?3 WHERE number = ?1";
    case Query::CountObjects:
      return "SELECT count(*) FROM (SELECT 1 FROM main.$objects LIMIT ?1)";
    case Query::ListIds:
      return "SELECT number, id FROM main.$objects WHERE number > ?1 ORDER BY number LIMIT ?2";
    case Query::ListObjects:
      return "SELECT number, id, size, encoding FROM main.$objects ORDER BY number";
    case Query::DeleteObject:
      return "DELETE FROM main.$objects WHERE number = ?1";
    case Query::ReadPieces:
      return "SELECT piece, data FROM main.$pieces WHERE object = ?1 ORDER BY piece";
    case Query::InsertPiece:
      return "INSERT INTO main.$pieces(object, piece, data) VALUES(?1, ?2, ?3)";
    case Query::DeletePieces:
      return "DELETE FROM main.$pieces WHERE object = ?1";
    case Query::Heads:
      return "SELECT m.value, h.name, h.id FROM main.$meta AS m LEFT JOIN main.$heads AS h"
             " WHERE m.name = 'heads' ORDER BY h.name";
    case Query::Head:
      return "SELECT id FROM main.$heads WHERE name = ?1";
    case Query::SetHead:
      return "INSERT INTO main.$heads(name, id) VALUES(?1, ?2)"
             " ON CONFLICT(name) DO UPDATE SET id = excluded.id";
    case Query::DeleteHead:
      return "DELETE FROM main.$heads WHERE name = ?1";
    case Query::Meta:
      return "SELECT value FROM main.$meta WHERE name = ?1";
    case Query::SetMeta:
      return "INSERT INTO main.$meta(name, value) VALUES(?1, ?2)"
             " ON CONFLICT(name) DO UPDATE SET value = excluded.value";
    case Query::ListValues:
      return "SELECT name, value, sum FROM main.$host_values ORDER BY name";
    case Query::Value:
      return "SELECT value, sum FROM main.$host_values WHERE name = ?1";
    case Query::SetValue:
      return "INSERT INTO main.$host_values(name, value, sum) VALUES(?1, ?2, ?3)"
             " ON CONFLICT(name) DO UPDATE SET value = excluded.value, sum = excluded.sum";
    case Query::DeleteValue:
      return "DELETE FROM main.$host_values WHERE name = ?1";
  }
  return "";
}

std::string WithPrefix(std::string_view text, std::string_view prefix) {
  std::string result;
  for (const char character : text) {
    if (character == '$') {
      result += prefix;
    } else {
      result += character;
    }
  }
  return result;
}

}  // namespace TalVcs::Kit::Sqlite
