#pragma once

#include <kit/open/internal/loaded_objects.h>
#include <kit/open/open.h>
#include <talvcs/storage/on_demand_storage.h>

#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace TalVcs::Kit {

/// The name of the store's value that has the current branch.
inline constexpr std::string_view kBranchValue = "branch";

/// What an opened repository consists of.
struct OpenedState {
  std::shared_ptr<IObjectStore> store;
  Repository repository;
  HistoryReport report;
  std::vector<Head> heads;  // of the branches that are in the repository, as the store has them
  std::optional<std::string> savedBranch;
  // Where everything is read from after `Load`, else null.
  std::shared_ptr<LoadedObjects> loaded;

  /// Null if the host has put another repository in place of the one that was opened.
  OnDemandStorage* Storage() { return OnDemandStorage::From(repository.GetStorage()); }
};

/// What the sources of the kit may do with an opened repository.
class OpenedAccess {
 public:
  static OpenedState& StateOf(OpenedRepository& opened) { return *opened.m_state; }

  /// Makes the repository, which reads from `reader`, of what a report allows under a policy; the
  /// error of its first damage if the policy is `Stop`. `branch` is the current branch, or empty
  /// for `saved`, the one that the store has noted.
  static Result<OpenedRepository> Make(std::shared_ptr<IObjectStore> store,
                                       std::shared_ptr<IObjectReader> reader,
                                       std::shared_ptr<LoadedObjects> loaded, HistoryReport report,
                                       DamagePolicy policy, const std::string& branch,
                                       std::optional<std::string> saved);
};

}  // namespace TalVcs::Kit
