#include "repository.h"

namespace Model {
namespace {

// Removes the entries that only the table holds, and those that become free by it, until all are in
// use.
template <class T>
void PurgeTable(std::map<Id, Handle<T>>& table) {
  const auto isUnused = [](const auto& entry) { return entry.second.UseCount() == 1; };
  while (std::erase_if(table, isUnused) != 0) {
  }
}

}  // namespace

Storage::Storage(const std::vector<Text>& names) {
  for (const Text& name : names) refs[name] = {};
}

void Storage::DeleteCommit(const Handle<Commit>& commit) {
  if (commit) commits.erase(commit->GetId());
}

std::vector<Text> Storage::GetCommitBranches(const Handle<Commit>& commit) const {
  std::vector<Text> names;
  for (const auto& [name, head] : refs) {
    if (head == commit) names.push_back(name);
  }
  return names;
}

bool Storage::CreateBranch(const Text& name, const Handle<Commit>& commit) {
  return !name.empty() && refs.emplace(name, commit).second;
}

bool Storage::UpdateBranch(const Text& name, const Handle<Commit>& commit) {
  if (name.empty() || !commit || !refs.contains(name)) return false;
  refs[name] = commit;
  return true;
}

void Storage::Purge() {
  PurgeTable(commits);
  PurgeTable(trees);
  PurgeTable(blobs);
}

}  // namespace Model
