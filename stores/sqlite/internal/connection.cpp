#include <sqlite3.h>
#include <stores/sqlite/internal/connection.h>

namespace TalVcs::Kit::Sqlite {
namespace {

struct Setting {
  int option;
  int value;
};

constexpr Setting kSettings[] = {{SQLITE_DBCONFIG_DEFENSIVE, 1},
                                 {SQLITE_DBCONFIG_TRUSTED_SCHEMA, 0},
                                 {SQLITE_DBCONFIG_ENABLE_TRIGGER, 0},
                                 {SQLITE_DBCONFIG_ENABLE_VIEW, 0},
                                 {SQLITE_DBCONFIG_ENABLE_LOAD_EXTENSION, 0}};

// Far above what the store's own statements need.
constexpr Setting kLimits[] = {
    {SQLITE_LIMIT_SQL_LENGTH, 100000}, {SQLITE_LIMIT_COLUMN, 100},
    {SQLITE_LIMIT_EXPR_DEPTH, 100},    {SQLITE_LIMIT_COMPOUND_SELECT, 10},
    {SQLITE_LIMIT_VDBE_OP, 25000},     {SQLITE_LIMIT_FUNCTION_ARG, 16},
    {SQLITE_LIMIT_ATTACHED, 0},        {SQLITE_LIMIT_LIKE_PATTERN_LENGTH, 50},
    {SQLITE_LIMIT_TRIGGER_DEPTH, 1},   {SQLITE_LIMIT_WORKER_THREADS, 0}};

}  // namespace

int RefuseForeignSql(sqlite3* connection) {
  for (const Setting& setting : kSettings) {
    const int code = sqlite3_db_config(connection, setting.option, setting.value, nullptr);
    if (code != SQLITE_OK) return code;
  }
  for (const Setting& limit : kLimits) sqlite3_limit(connection, limit.option, limit.value);
  return sqlite3_exec(connection, "PRAGMA cell_size_check = ON", nullptr, nullptr, nullptr);
}

}  // namespace TalVcs::Kit::Sqlite
