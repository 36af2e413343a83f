#include "repository.h"

#include <algorithm>
#include <functional>
#include <set>

namespace Model {

Handle<Commit> Repository::GetCommonBase(Handle<Commit> first, Handle<Commit> second) const {
  if (!first || !second) return {};
  std::set<Id> seen;
  while (first || second) {
    if (first && !seen.insert(first->GetId()).second) return first;
    if (second && !seen.insert(second->GetId()).second) return second;
    if (first) first = Handle<Commit>(first->GetParent());
    if (second) second = Handle<Commit>(second->GetParent());
  }
  return {};
}

Handle<Commit> Repository::MergelessRebase(const Handle<Commit>& tip, const Handle<Commit>& stop,
                                           const Handle<Commit>& newBase) {
  if (!tip || !newBase) return {};
  std::vector<Handle<Commit>> chain = {tip};
  if (tip != stop) {
    while (chain.back()->GetParent() && chain.back()->GetParent() != stop) {
      chain.push_back(Handle<Commit>(chain.back()->GetParent()));
    }
  }
  std::reverse(chain.begin(), chain.end());
  Handle<Commit> previous = newBase;
  for (Handle<Commit>& commit : chain) {
    if (commit->GetParent() == previous) break;
    commit.write()->SetParent(previous);
    commit = SyncWithStorage(commit);
    previous = commit;
  }
  return chain.back();
}

bool Repository::AttachToRoot(const Text& branch, const Handle<Commit>& root) {
  const Handle<Commit> head = GetHead(branch);
  if (!head) return CreateBranch(branch, root) || MoveBranchTo(branch, root);
  if (GetCommonBase(head, root)) return true;
  return MoveBranchTo(branch, MergelessRebase(head, {}, root));
}

bool Repository::EnsureCommonRootFor(const Text& first, const Text& second,
                                     const Text& rootBranch) {
  if (GetCommonBase(GetHead(first), GetHead(second))) return true;
  if (!GetHead(rootBranch)) {
    Handle<Commit> root{Commit()};
    root.write()->SetDescription(u"Root commit");
    if (!CreateBranch(rootBranch, SyncWithStorage(root))) return false;
  }
  const Handle<Commit> root = GetHead(rootBranch);
  return root && AttachToRoot(first, root) && AttachToRoot(second, root);
}

bool Repository::DeleteCommits(Handle<Commit> commit) {
  if (!m_storage) return false;
  if (!commit || !commit->GetParent()) return true;
  std::vector<Handle<Commit>> kept;
  std::vector<std::vector<Text>> branches;
  while (commit) {
    const std::vector<Text> names = m_storage->GetCommitBranches(commit);
    if (!names.empty()) {
      kept.push_back(commit);
      kept.back().write()->SetParent({});
      branches.push_back(names);
    }
    m_storage->DeleteCommit(commit);
    commit = Handle<Commit>(commit->GetParent());
  }
  if (kept.empty()) return true;
  Commit::MakeCommitLinksInOrder(kept, this);
  for (std::size_t i = 0; i < kept.size(); ++i) {
    for (const Text& name : branches[i]) {
      if (!MoveBranchTo(name, kept[i])) break;
    }
  }
  kept.clear();
  m_storage->Purge();
  return true;
}

bool Repository::SimplifyCommitGraph(bool updateStorage) {
  if (!m_storage) return false;
  std::map<Text, Handle<Commit>> snapshot = m_storage->refs;
  std::set<Id> tips;
  for (const auto& [name, head] : snapshot) {
    if (head) tips.insert(head->GetId());
  }
  std::set<Id> kept = tips;
  for (auto a = snapshot.begin(); a != snapshot.end(); ++a) {
    for (auto b = std::next(a); b != snapshot.end(); ++b) {
      const Handle<Commit> base = GetCommonBase(a->second, b->second);
      if (base) kept.insert(base->GetId());
    }
  }
  std::map<Id, std::set<Id>> children;
  std::set<Id> linked;
  for (const Id& tip : tips) {
    Handle<Commit> commit = GetCommitFromStorage(tip);
    if (!commit) continue;
    Id current = tip;
    for (commit = Handle<Commit>(commit->GetParent()); commit;
         commit = Handle<Commit>(commit->GetParent())) {
      if (!kept.contains(commit->GetId())) continue;
      children[commit->GetId()].insert(current);
      linked.insert(current);
      current = commit->GetId();
    }
  }
  std::map<Id, Handle<Commit>> added;
  const std::function<void(Handle<Commit>, const Handle<Commit>&)> rewrite =
      [&](Handle<Commit> commit, const Handle<Commit>& parent) {
        if (!commit) return;
        const Id oldId = commit->GetId();
        commit.write()->SetParent(parent);
        const Handle<Commit> rewritten = commit;
        const bool isNew = !GetCommitFromStorage(commit->GetId());
        commit = SyncWithStorage(commit);
        if (isNew) added[commit->GetId()] = commit;
        // A kept commit that the table lacked is there now: it is rewritten if its turn comes
        // later.
        if (isNew && kept.contains(commit->GetId())) m_orderUnknown = true;
        // Two commits became one: which of the two instances was first is up to the library.
        if (!isNew && added.contains(commit->GetId()) &&
            (rewritten->GetRoot() != commit->GetRoot() ||
             rewritten->IsAmend() != commit->IsAmend())) {
          m_orderUnknown = true;
        }
        for (const auto& [name, head] : snapshot) {
          if (!head || head->GetId() != oldId) continue;
          if (BranchExist(name)) {
            MoveBranchTo(name, commit);
          } else {
            CreateBranch(name, commit);
          }
        }
        for (const Id& child : children[oldId]) rewrite(GetCommitFromStorage(child), commit);
      };
  for (const Id& id : kept) {
    if (!linked.contains(id)) rewrite(GetCommitFromStorage(id), {});
  }
  snapshot.clear();
  added.clear();
  if (updateStorage) m_storage->Purge();
  return true;
}

}  // namespace Model
