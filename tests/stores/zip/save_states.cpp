#include <stores/zip/zip_store.h>
#include <tests/kit/store/save_states.h>

int main(int count, char** arguments) {
  return TalVcs::Testing::SaveStates<TalVcs::Kit::ZipStore>(count, arguments);
}
