#include <stores/postgres/internal/postgres_error.h>
#include <stores/postgres/internal/schema.h>

#include <array>
#include <string>
#include <utility>
#include <vector>

namespace TalVcs::Kit::Postgres {
namespace {

constexpr int kPartitions = 16;

// Rows up to a page stay in one piece. The server would cut rows above 2 KB, and each of those
// takes entries in two more tables.
constexpr std::string_view kRowSettings = " WITH (toast_tuple_target = 8160)";

// The key of a head or a setting is the digest of its name, which may be longer than an index
// takes.
constexpr std::array kTables = {
    "CREATE TABLE talvcs.meta (version int8 NOT NULL)",
    "CREATE TABLE talvcs.repositories (number int8 GENERATED ALWAYS AS IDENTITY PRIMARY KEY, "
    "name bytea NOT NULL UNIQUE, epoch int8 NOT NULL DEFAULT 0, pass int8 NOT NULL DEFAULT 0, "
    "removals int8 NOT NULL DEFAULT 0, guard int8)",
    "CREATE TABLE talvcs.objects (repository int8 NOT NULL, id bytea NOT NULL, pass int8 NOT NULL, "
    "size int8 NOT NULL, pieces int8 NOT NULL, data bytea, parent bytea, root bytea, "
    "PRIMARY KEY (repository, id)) "
    "PARTITION BY HASH (id)",
    // The bytes are compressed already.
    "ALTER TABLE talvcs.objects ALTER COLUMN data SET STORAGE EXTERNAL",
    "CREATE INDEX objects_pass ON talvcs.objects (repository, pass)",
    "CREATE TABLE talvcs.pieces (repository int8 NOT NULL, id bytea NOT NULL, piece int8 NOT NULL, "
    "data bytea NOT NULL, PRIMARY KEY (repository, id, piece)) PARTITION BY HASH (id)",
    "ALTER TABLE talvcs.pieces ALTER COLUMN data SET STORAGE EXTERNAL",
    "CREATE TABLE talvcs.condemned (repository int8 NOT NULL, id bytea NOT NULL, "
    "since timestamptz NOT NULL, PRIMARY KEY (repository, id))",
    "CREATE TABLE talvcs.heads (repository int8 NOT NULL, key bytea NOT NULL, name bytea NOT NULL, "
    "target bytea NOT NULL, PRIMARY KEY (repository, key))",
    "CREATE TABLE talvcs.settings (repository int8 NOT NULL, key bytea NOT NULL, "
    "value bytea NOT NULL, PRIMARY KEY (repository, key))",
};

// From each version to the next, beginning with the first. What a text adds is known at once: no
// row is written again.
constexpr std::array kUpgrades = {
    "ALTER TABLE talvcs.objects ADD COLUMN parent bytea, ADD COLUMN root bytea",
};
static_assert(kUpgrades.size() == kSchemaVersion - 1);

std::vector<std::string> TextsOfUpgrade(std::int64_t version) {
  std::vector<std::string> texts = {"BEGIN"};
  texts.insert(texts.end(), kUpgrades.begin() + (version - 1), kUpgrades.end());
  texts.push_back("UPDATE talvcs.meta SET version = " + std::to_string(kSchemaVersion));
  texts.emplace_back("COMMIT");
  return texts;
}

std::vector<std::string> TextsOfSchema(bool has_schema) {
  std::vector<std::string> texts = {"BEGIN"};
  if (!has_schema) texts.emplace_back("CREATE SCHEMA talvcs");
  texts.insert(texts.end(), kTables.begin(), kTables.end());
  for (const std::string table : {"objects", "pieces"}) {
    for (int part = 0; part < kPartitions; ++part) {
      texts.push_back("CREATE TABLE talvcs." + table + "_" + std::to_string(part) +
                      " PARTITION OF talvcs." + table + " FOR VALUES WITH (MODULUS " +
                      std::to_string(kPartitions) + ", REMAINDER " + std::to_string(part) + ")" +
                      std::string(kRowSettings));
    }
  }
  texts.push_back("INSERT INTO talvcs.meta (version) VALUES (" + std::to_string(kSchemaVersion) +
                  ")");
  texts.emplace_back("COMMIT");
  return texts;
}

Error ErrorWith(ErrorCode code, std::string message) {
  Error error;
  error.code = code;
  error.message = std::move(message);
  return error;
}

Result<std::vector<Rows>> RunOne(Connection& connection, Sql statement,
                                 Parameters parameters = {}) {
  const Call call{statement, std::move(parameters)};
  return connection.Run({&call, 1});
}

/// Makes the tables, or upgrades those of a version. Returns false if another program does so at
/// this moment.
Result<bool> MakeTables(Connection& connection, std::int64_t version) {
  Result<std::vector<Rows>> schema = RunOne(connection, Sql::FindSchema);
  if (!schema) return std::move(schema).error();
  const Status status = connection.RunTexts(
      version == 0 ? TextsOfSchema(schema->front().Count() != 0) : TextsOfUpgrade(version));
  if (status) return true;
  const std::string state = connection.State();
  if (connection.IsLost()) return status.error();
  if (Result<std::vector<Rows>> undone = RunOne(connection, Sql::Rollback); !undone) {
    return std::move(undone).error();
  }
  const bool is_others = state == kDuplicateSchema || state == kDuplicateTable ||
                         state == kDuplicateColumn || state == kUniqueViolation || IsUndone(state);
  return is_others ? Result<bool>(false) : status.error();
}

Result<std::int64_t> VersionOf(Connection& connection) {
  Result<std::vector<Rows>> rows = RunOne(connection, Sql::ReadVersion);
  if (rows) return rows->front().Count() == 1 ? rows->front().Number(0, 0) : -1;
  const std::string& state = connection.State();
  if (state == kUndefinedTable || state == kInvalidSchema) return 0;
  return std::move(rows).error();
}

}  // namespace

Status OpenSchema(Connection& connection, bool create) {
  constexpr int kMostAttempts = 10;
  for (int attempt = 0; attempt < kMostAttempts; ++attempt) {
    const Result<std::int64_t> version = VersionOf(connection);
    if (!version) return version.error();
    if (*version == kSchemaVersion) return {};
    if (*version > kSchemaVersion) {
      return ErrorWith(ErrorCode::Unsupported, "a newer version of the store has made its tables");
    }
    if (*version < 0) return ErrorWith(ErrorCode::Damaged, "its tables have no version");
    if (!create) {
      return ErrorWith(ErrorCode::NotFound,
                       *version == 0 ? "the database has no tables of the store"
                                     : "the tables of the store are of an older version");
    }
    const Result<bool> made = MakeTables(connection, *version);
    if (!made) return made.error();
  }
  return ErrorWith(ErrorCode::Busy, "others make the tables of the store");
}

Result<std::int64_t> OpenRepository(Connection& connection, std::string_view name, bool create) {
  for (bool is_made = !create;; is_made = true) {
    Result<std::vector<Rows>> found =
        RunOne(connection, Sql::FindRepository, Parameters().Add(name));
    if (!found) return std::move(found).error();
    if (found->front().Count() == 1) return found->front().Number(0, 0);
    if (is_made) return ErrorWith(ErrorCode::NotFound, "there is no such repository");
    Result<std::vector<Rows>> made =
        RunOne(connection, Sql::InsertRepository, Parameters().Add(name));
    if (!made) return std::move(made).error();
  }
}

std::optional<std::int64_t> FindRepository(Connection& connection, const Call& settings,
                                           std::string_view name) {
  const Call calls[] = {
      settings, {Sql::ReadVersion}, {Sql::FindRepository, Parameters().Add(name)}};
  const Result<std::vector<Rows>> rows = connection.Run(calls);
  if (!rows) return std::nullopt;
  const Rows& version = (*rows)[1];
  const Rows& found = (*rows)[2];
  if (version.Count() != 1 || version.Number(0, 0) != kSchemaVersion) return std::nullopt;
  return found.Count() == 1 ? std::optional(found.Number(0, 0)) : std::nullopt;
}

}  // namespace TalVcs::Kit::Postgres
