#pragma once

#include <kit/open/load.h>
#include <kit/open/open.h>
#include <kit/open/save.h>
#include <kit/store/memory_object_store.h>
#include <kit/text.h>
#include <tests/support/contents.h>

#include <algorithm>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

/// Histories for the tests of opening and saving, and texts that show them.
namespace TalVcs::Testing {

/// A file and its bytes. A file without bytes is removed.
using Files = std::vector<std::pair<std::string, std::string>>;

/// Puts a commit with these files changed on top of a branch, which is made if it is missing. Time
/// and author are always the same.
inline cow_ptr<Commit> AddCommit(Repository& repository, std::string_view branch,
                                 const Files& files, std::string_view description = "edit") {
  const auto name = Wide(branch);
  Commit next(repository.GetHead(name), false);
  for (const auto& [path, bytes] : files) {
    if (bytes.empty()) {
      next.RemoveObject(&repository, Wide(path));
    } else {
      next.AddBlob(&repository, Wide(path), BlobOf(bytes));
    }
  }
  next.SetDescription(Kit::ToWide(description));
  next.SetAuthorName(Wide("A"));
  next.SetAuthorEmail(Wide("a@b"));
  next.SetCommitTime(Time::FromTimeT(1000000000));
  cow_ptr<Commit> commit = repository.SyncWithStorage(Make<Commit>(next));
  if (!repository.MoveBranchTo(name, commit)) repository.CreateBranch(name, commit);
  return commit;
}

/// Three branches: "master" with three commits, "topic" from its second one on, and "other", which
/// shares only a folder with them.
inline Repository SmallHistory() {
  Repository repository = NewRepository();
  AddCommit(repository, "master", {{"shared/one", "1"}, {"shared/two", "2"}});
  const cow_ptr<Commit> second = AddCommit(repository, "master", {{"a/b/c", "deep"}});
  AddCommit(repository, "master", {{"top", "master's"}});
  repository.CreateBranch(Wide("topic"), second);
  AddCommit(repository, "topic", {{"a/b/c", "changed"}, {"a/b/d", "new"}});
  AddCommit(repository, "other", {{"shared/one", "1"}, {"shared/two", "2"}, {"own", "other's"}});
  return repository;
}

/// Returns the commits of a branch, newest first, each as its id, its description and its files.
inline std::string HistoryOf(const Repository& repository, std::string_view branch) {
  std::string history;
  cow_ptr<Commit> commit = repository.GetHead(Wide(branch));
  for (; commit; commit = commit->GetParent()) {
    history += IdOf(commit) + " " + Ascii(commit->GetDesciption()) + " " + ListingOf(commit) + "\n";
  }
  return history;
}

/// Returns the histories of all branches, in the order of their names.
inline std::string HistoryOf(const Repository& repository) {
  std::vector<std::string> names;
  for (const auto& [name, head] : repository.GetStorage()->GetRefs()) names.push_back(Ascii(name));
  std::sort(names.begin(), names.end());
  std::string histories;
  for (const std::string& name : names) {
    histories += name + ":\n" + HistoryOf(repository, name);
  }
  return histories;
}

/// Returns a store with what the branches of a repository reach.
inline std::shared_ptr<Kit::MemoryObjectStore> StoreOf(Repository& repository) {
  auto store = std::make_shared<Kit::MemoryObjectStore>();
  Kit::Save(repository, *store).value();
  return store;
}
inline std::shared_ptr<Kit::MemoryObjectStore> SmallStore() {
  Repository repository = SmallHistory();
  return StoreOf(repository);
}

/// Shows the heads of a store.
inline std::string HeadsOf(Kit::IObjectStore& store) {
  std::string heads;
  const std::vector<Kit::Head> actual = store.Heads().value();
  for (const Kit::Head& head : actual) {
    heads += head.name + "=" + Ascii(head.id) + "\n";
  }
  return heads;
}

/// Returns the ids of all objects of a store, sorted by their texts.
inline std::vector<Id> ObjectsOf(Kit::IObjectStore& store) {
  std::vector<Id> ids;
  store
      .List([&ids](std::span<const Id> some) {
        ids.insert(ids.end(), some.begin(), some.end());
        return true;
      })
      .value();
  std::sort(ids.begin(), ids.end(), [](const Id& a, const Id& b) { return a.View() < b.View(); });
  return ids;
}

/// Returns "ok", or the name of the error's code.
template <class AnyResult>
std::string CodeOf(const AnyResult& result) {
  return result.ok() ? "ok" : Kit::ToString(result.error().code);
}

}  // namespace TalVcs::Testing
