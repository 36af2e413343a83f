#include <stores/sqlite/internal/queries.h>

namespace TalVcs::Kit::Sqlite {

// Rows of objects are appended, and only a short index is ordered by the ids, which are random: a
// save then changes few pages of a large file. The index has the first 8 bytes of each id, as they
// distinguish all objects in practice; the whole id stands in the row and is always compared.
const char kCreateTables[] = R"(
CREATE TABLE objects(
  number INTEGER PRIMARY KEY,
  id BLOB NOT NULL,
  size INTEGER NOT NULL,
  encoding INTEGER NOT NULL,
  data BLOB NOT NULL);
CREATE INDEX objects_by_id ON objects(substr(id, 1, 8));
CREATE TABLE heads(
  name TEXT NOT NULL PRIMARY KEY,
  id BLOB NOT NULL) WITHOUT ROWID;
CREATE TABLE host_values(
  name TEXT NOT NULL PRIMARY KEY,
  value BLOB NOT NULL,
  sum INTEGER NOT NULL) WITHOUT ROWID;
CREATE TABLE meta(
  name TEXT NOT NULL PRIMARY KEY,
  value INTEGER NOT NULL) WITHOUT ROWID;
INSERT INTO meta VALUES('heads', 0), ('removals', 0);
)";

const char* TextOf(Query query) noexcept {
  switch (query) {
    case Query::ApplicationId:
      return "PRAGMA application_id";
    case Query::UserVersion:
      return "PRAGMA user_version";
    case Query::CountTables:
      return "SELECT count(*) FROM sqlite_schema";
    case Query::BeginReading:
      return "BEGIN";
    case Query::BeginWriting:
      return "BEGIN IMMEDIATE";
    case Query::Commit:
      return "COMMIT";
    case Query::Rollback:
      return "ROLLBACK";
    case Query::HasObject:
      return "SELECT 1 FROM objects WHERE substr(id, 1, 8) = substr(?1, 1, 8) AND id = ?1";
    case Query::ReadObject:
      return "SELECT size, encoding, data FROM objects"
             " WHERE substr(id, 1, 8) = substr(?1, 1, 8) AND id = ?1";
    case Query::SizeOfObject:
      return "SELECT size FROM objects WHERE substr(id, 1, 8) = substr(?1, 1, 8) AND id = ?1";
    case Query::InsertObject:
      return "INSERT INTO objects(id, size, encoding, data) VALUES(?1, ?2, ?3, ?4)";
    case Query::ListIds:
      return "SELECT number, id FROM objects WHERE number > ?1 ORDER BY number LIMIT ?2";
    case Query::ListObjects:
      return "SELECT number, id, size FROM objects ORDER BY number";
    case Query::DeleteObject:
      return "DELETE FROM objects WHERE number = ?1";
    case Query::Heads:
      return "SELECT meta.value, heads.name, heads.id FROM meta LEFT JOIN heads"
             " WHERE meta.name = 'heads' ORDER BY heads.name";
    case Query::Head:
      return "SELECT id FROM heads WHERE name = ?1";
    case Query::SetHead:
      return "INSERT INTO heads(name, id) VALUES(?1, ?2)"
             " ON CONFLICT(name) DO UPDATE SET id = excluded.id";
    case Query::DeleteHead:
      return "DELETE FROM heads WHERE name = ?1";
    case Query::Meta:
      return "SELECT value FROM meta WHERE name = ?1";
    case Query::SetMeta:
      return "UPDATE meta SET value = ?2 WHERE name = ?1";
    case Query::Value:
      return "SELECT value, sum FROM host_values WHERE name = ?1";
    case Query::SetValue:
      return "INSERT INTO host_values(name, value, sum) VALUES(?1, ?2, ?3)"
             " ON CONFLICT(name) DO UPDATE SET value = excluded.value, sum = excluded.sum";
    case Query::DeleteValue:
      return "DELETE FROM host_values WHERE name = ?1";
  }
  return "";
}

}  // namespace TalVcs::Kit::Sqlite
