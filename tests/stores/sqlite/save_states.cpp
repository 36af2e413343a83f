#include <stores/sqlite/sqlite_store.h>
#include <tests/kit/store/save_states.h>

int main(int count, char** arguments) {
  return TalVcs::Testing::SaveStates<TalVcs::Kit::SqliteStore>(count, arguments);
}
