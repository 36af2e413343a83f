#include <stores/sqlite/internal/database.h>
#include <stores/sqlite/internal/space.h>

#include <cstdint>
#include <utility>

namespace TalVcs::Kit::Sqlite {
namespace {

// Fewer aren't worth the writes.
constexpr std::int64_t kFewestPages = 128;

/// Returns 0 after a failure.
std::int64_t CountOf(Database& database, Query query) {
  const Result<std::int64_t> count = database.NumberOf(query, Task::Save);
  return count ? *count : 0;
}

}  // namespace

void GiveBackPages(Database& database) {
  if (database.IsAttached()) return;
  std::int64_t free = CountOf(database, Query::CountFreePages);
  if (free < kFewestPages || free < CountOf(database, Query::CountPages) / 4) return;
  // Others can read and write between the steps.
  while (free > 0 && database.Execute("PRAGMA main.incremental_vacuum(4096)", Task::Save)) {
    const std::int64_t left = CountOf(database, Query::CountFreePages);
    if (left >= free) return;
    free = left;
  }
}

}  // namespace TalVcs::Kit::Sqlite
