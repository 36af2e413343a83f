// Saves and describes the two states of the tests, for tests that do something to the process.
//
// save_states FOLDER old|new    saves that state; exits with 1 and prints why if that fails
// save_states FOLDER describe   prints what the store holds: a line, and what is damaged

#include <kit/directory_store.h>
#include <tests/kit/saved_states.h>

#include <iostream>

using namespace TalVcs;

int main(int argc, char** argv) {
  if (argc != 3) return 2;
  const std::string command = argv[2];
  Kit::DirectoryStore store(argv[1]);
  if (command == "describe") {
    std::cout << Testing::Load(store) << ", " << store.FindDamage().size() << " damaged\n";
    return 0;
  }
  if (command != "old" && command != "new") return 2;
  Repository repository = command == "old" ? Testing::OldState() : Testing::NewState();
  if (Testing::Save(repository, store) && store.Commit()) return 0;
  std::cerr << store.LastError() << '\n';
  return 1;
}
