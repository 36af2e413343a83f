// A document with a history in a folder: files are written and committed on two branches, merged,
// taken back and brought back.

#include <kit/store/directory_object_store.h>
#include <kit/workspace/workspace.h>

#include <iostream>

using namespace TalVcs;

int main() {
  // Everything that can fail returns a result; value() returns its value, or throws the error.
  auto store = Kit::DirectoryObjectStore::Create("quick-start-history");
  auto drawing = Kit::Workspace::Open(std::move(store), {.author = "Ada"}).value();
  drawing.Write("house/door", "red").value();
  drawing.Commit("Draw a house").value();  // saved, durably

  drawing.CreateBranch("garden").value();
  drawing.Write("house/roof", "green").value();
  drawing.Commit("Add a roof").value();
  drawing.Switch("garden").value();
  drawing.Write("tree", "old").value();
  drawing.Commit("Plant a tree").value();

  drawing.Switch("master").value();
  drawing.Merge("garden").value();
  drawing.Undo().value();
  drawing.Redo().value();
  for (const auto& path : drawing.ListFiles().value()) std::cout << path << '\n';
  for (const auto& version : drawing.Log().value()) std::cout << version.summary << '\n';
}
