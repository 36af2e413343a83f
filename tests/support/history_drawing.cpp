#include <tests/support/contents.h>
#include <tests/support/history_drawing.h>

#include <algorithm>
#include <cstddef>
#include <memory>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

namespace TalVcs::Testing {
namespace {

// Cuts `text` at each `separator` and drops blanks around the parts and empty parts.
std::vector<std::string> Split(std::string_view text, char separator) {
  std::vector<std::string> parts;
  while (!text.empty()) {
    const std::size_t end = std::min(text.find(separator), text.size());
    std::string_view part = text.substr(0, end);
    while (!part.empty() && part.front() == ' ') part.remove_prefix(1);
    while (!part.empty() && part.back() == ' ') part.remove_suffix(1);
    if (!part.empty()) parts.emplace_back(part);
    text.remove_prefix(std::min(end + 1, text.size()));
  }
  return parts;
}

}  // namespace

cow_ptr<Commit> MakeCommit(IRepository& repository, std::string_view name, cow_ptr<Commit> parent) {
  auto commit = std::make_unique<Commit>();
  commit->SetDescription(Wide(name));
  commit->SetAuthorName(Wide("Ann"));
  commit->SetAuthorEmail(Wide("ann@example.org"));
  commit->SetCommitTime(Time::FromTimeT(1000000000));
  commit->SetParent(std::move(parent));
  // The root comes in as a whole, so no tree of a half-made commit stays in the storage.
  commit->ReplaceRoot(
      &repository,
      Make<Tree>(TreeOf(&repository, {{"lib/common", "common"}, {"name", std::string(name)}})));
  return cow_ptr<Commit>(dll_wrapped_shared(std::move(commit)));
}

History DrawHistory(IRepository& repository, std::string_view drawing, History known) {
  for (const std::string& chain : Split(drawing, ';')) {
    cow_ptr<Commit> parent;
    for (const std::string& name : Split(chain, '-')) {
      if (const auto found = known.find(name); found != known.end()) {
        if (parent) throw std::invalid_argument(name + " has two parents in " + chain);
        parent = found->second;
        continue;
      }
      parent = repository.SyncWithStorage(MakeCommit(repository, name, parent));
      known.emplace(name, parent);
    }
  }
  return known;
}

void PlaceBranches(IRepository& repository, const History& history, std::string_view branches) {
  for (const std::string& placing : Split(branches, ' ')) {
    const std::size_t equals = placing.find('=');
    const TalStringT<WideChar> branch = Wide(placing.substr(0, equals));
    const std::string commit = placing.substr(equals + 1);
    bool placed;
    if (commit.empty()) {
      placed = repository.GetStorage()->CreateBranch(branch, nullptr);
    } else if (repository.BranchExist(branch)) {
      placed = repository.MoveBranchTo(branch, history.at(commit));
    } else {
      placed = repository.CreateBranch(branch, history.at(commit));
    }
    if (!placed) throw std::invalid_argument("can't place " + placing);
  }
}

std::string ChainOf(const cow_ptr<Commit>& tip) {
  std::string chain;
  for (cow_ptr<Commit> commit = tip; commit; commit = commit->GetParent()) {
    const TalStringT<WideChar> description = commit->GetDesciption();
    const std::string name = description.IsEmpty() ? "_" : Ascii(description);
    chain = name + (chain.empty() ? "" : "-") + chain;
  }
  return chain;
}

std::string ChainOf(const IRepository& repository, std::string_view branch) {
  return ChainOf(repository.GetHead(Wide(branch)));
}

std::string IdOfChain(std::string_view chain) {
  Repository nowhere(nullptr);
  cow_ptr<Commit> tip;
  for (const std::string& name : Split(chain, '-')) tip = MakeCommit(nowhere, name, tip);
  return IdOf(tip);
}

cow_ptr<Commit> GrowChain(IRepository& repository, cow_ptr<Commit> parent, std::size_t count,
                          std::size_t first) {
  const cow_ptr<Commit> pattern = MakeCommit(repository, "chain");
  for (std::size_t i = 0; i < count; ++i) {
    cow_ptr<Commit> commit = pattern;
    commit.write()->SetParent(std::move(parent));
    commit.write()->SetDescription(Wide(std::to_string(first + i)));
    parent = repository.SyncWithStorage(std::move(commit));
  }
  return parent;
}

}  // namespace TalVcs::Testing
