// A host of one save, for tests that let its system calls fail.
//
//   talvcs_sqlite_states FILE old|new   saves that state; the new one stands on the old one
//   talvcs_sqlite_states FILE log       saves the new state with a write-ahead log
//   talvcs_sqlite_states FILE compact   compacts the document
//   talvcs_sqlite_states FILE describe  prints the state

#include <stores/sqlite/sqlite_store.h>
#include <tests/stores/sqlite/documents.h>

#include <cstdio>
#include <string>
#include <string_view>

namespace {

using namespace TalVcs;

Kit::Status SaveState(const std::string& file, std::string_view state) {
  if (state == "compact") return Kit::SqliteStore::Compact(file);
  const auto mode =
      state == "log" ? Kit::SqliteJournalMode::WriteAheadLog : Kit::SqliteJournalMode::Rollback;
  Kit::Result<Kit::SqliteStore> store = Kit::SqliteStore::Open(file, {.journalMode = mode});
  if (!store) return std::move(store).error();
  if (state == "old") return Testing::SaveOldState(*store);
  if (Testing::DescribeStore(*store) == Testing::kNewState) return {};
  return Testing::SaveNewState(*store);
}

}  // namespace

int main(int count, char** arguments) {
  if (count != 3) return 2;
  const std::string file = arguments[1];
  const std::string_view action = arguments[2];
  if (action == "describe") {
    std::fputs(Testing::DescribeFile(file).c_str(), stdout);
    return 0;
  }
  const Kit::Status status = SaveState(file, action);
  if (status) return 0;
  std::fprintf(stderr, "%s\n", Kit::Describe(status.error()).c_str());
  return 1;
}
