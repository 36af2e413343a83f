#include <stores/sqlite/sqlite_store.h>
#include <tests/kit/store/save_states.h>

#include <string_view>
#include <utility>

// The host of one save, with two more actions:
//
//     talvcs_sqlite_states FILE log      saves the new state with a write-ahead log
//     talvcs_sqlite_states FILE compact  compacts the document

namespace {

using namespace TalVcs;

Kit::Status SaveWithLog(const char* file) {
  Kit::Result<Kit::SqliteStore> store =
      Kit::SqliteStore::Open(file, {.journalMode = Kit::SqliteJournalMode::WriteAheadLog});
  if (!store) return std::move(store).error();
  const bool is_new = Testing::DescribeStore(*store) == Testing::kNewState;
  return is_new ? Kit::Status() : Testing::SaveNewState(*store);
}

}  // namespace

int main(int count, char** arguments) {
  const std::string_view action = count == 3 ? arguments[2] : "";
  if (action != "log" && action != "compact") {
    return Testing::SaveStates<Kit::SqliteStore>(count, arguments);
  }
  return Testing::PrintFailure(action == "log" ? SaveWithLog(arguments[1])
                                               : Kit::SqliteStore::Compact(arguments[1]));
}
