#include <tests/support/invariants.h>

#include <talvcs/foundation/helpers.h>
#include <tests/support/contents.h>
#include <tests/support/entry_list.h>

#include <set>
#include <vector>

namespace TalVcs::Testing {
namespace {

template <class T>
void AppendIds(const std::unordered_map<Id, cow_ptr<T>>& table, std::set<std::string>& ids) {
  for (const auto& [id, object] : table) ids.insert(Ascii(id));
}

// The bytes of a tree, made from the results of its other observers.
std::string EntriesOf(const Tree& tree) {
  ModelDirectory directory;
  for (const auto& name : tree.GetLocalObjectPaths()) {
    const cow_ptr<Tree> below = tree.GetLocalTree(name);
    directory[Ascii(name)] = {below != nullptr,
                              below ? IdOf(below) : IdOf(tree.GetLocalBlob(name))};
  }
  return EncodeEntryList(directory);
}

template <class T>
std::string FindDifference(const std::unordered_map<Id, cow_ptr<T>>& table, const char* type) {
  for (const auto& [id, object] : table) {
    const std::string shown = std::string(type) + ' ' + Ascii(id);
    if (!object) return "nothing under " + shown;
    if (IdOf(object) != Ascii(id)) return "another object under " + shown;
    const std::string data = Bytes(object->GetData());
    const std::string packed = std::string(type) + ' ' + std::to_string(data.size()) + '\0' + data;
    if (Bytes(object->GetPackedData()) != packed) return "other bytes in " + shown;
    if (Ascii(Helpers::ComputeEncodedSHA256Hash(BufferOf(packed))) != Ascii(id)) {
      return "bytes of another id in " + shown;
    }
  }
  return "";
}

std::string FindUnreadable(const Tree& root) {
  std::vector<const Tree*> open{&root};
  while (!open.empty()) {
    const Tree& tree = *open.back();
    open.pop_back();
    if (Bytes(tree.GetData()) != EntriesOf(tree)) return "other entries in tree " + IdOf(tree);
    for (const auto& name : tree.GetLocalSubtreePaths()) {
      open.push_back(tree.GetLocalTree(name).get());
    }
    for (const auto& name : tree.GetLocalBlobPaths()) {
      if (!tree.GetLocalBlob(name)) return "a missing blob in tree " + IdOf(tree);
    }
  }
  return "";
}

}  // namespace

std::string Inventory(const Repository& repository) {
  const IObjectsStorage& storage = *repository.GetStorage();
  std::set<std::string> lines;
  for (const auto& [name, head] : storage.GetRefs()) lines.insert(Ascii(name) + '=' + IdOf(head));
  AppendIds(storage.GetCommits(), lines);
  AppendIds(storage.GetTrees(), lines);
  AppendIds(storage.GetBlobs(), lines);
  std::string inventory;
  for (const std::string& line : lines) inventory += line + '\n';
  return inventory;
}

std::string FindViolation(const Repository& repository) {
  const IObjectsStorage& storage = *repository.GetStorage();
  std::string found = FindDifference(storage.GetBlobs(), "blob");
  if (found.empty()) found = FindDifference(storage.GetTrees(), "tree");
  if (found.empty()) found = FindDifference(storage.GetCommits(), "commit");
  for (const auto& [id, tree] : storage.GetTrees()) {
    if (found.empty()) found = FindUnreadable(*tree);
  }
  for (const auto& [name, head] : storage.GetRefs()) {
    for (cow_ptr<Commit> commit = head; commit && found.empty(); commit = commit->GetParent()) {
      const cow_ptr<CommitTree> tree = commit->GetTree();
      if (tree && tree->GetRoot()) found = FindUnreadable(*tree->GetRoot());
      if (Bytes(commit->GetData()).find("author ") == std::string::npos) {
        found = "an unreadable commit " + IdOf(commit);
      }
    }
  }
  return found;
}

}  // namespace TalVcs::Testing
