#pragma once

#include <talvcs/repository/repository.h>
#include <talvcs/storage/on_demand_storage.h>

#include <array>
#include <cstddef>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

namespace TalVcs::Testing {

/// A commit as both sides find it: some steps up from a branch, or one that the host holds.
struct Version {
  std::size_t repository = 0;
  std::string branch;
  std::size_t stepsUp = 0;
};

/// Two repositories, of which the second began as a copy of the first, and what a host holds of
/// them.
struct Side {
  std::array<std::unique_ptr<Repository>, 2> repositories;
  std::array<std::unique_ptr<Commit>, 2> drafts;        // one for each repository
  std::array<std::vector<cow_ptr<Commit>>, 2> commits;  // for each repository
  std::vector<cow_ptr<Tree>> trees;

  /// Drops all handles.
  void Forget();
  cow_ptr<Commit> Find(const Version& version) const;
  cow_ptr<Tree> FindRoot(const Version& version) const;
};

/// Something that is done to either side. It returns what it found as text, the same for both
/// sides. If it throws it can be repeated.
using Operation = std::function<std::string(Side&)>;

/// What there is to see of an object, as text.
std::string DescribeTree(const cow_ptr<Tree>& tree);
std::string DescribeDiff(const cow_ptr<Tree>& a, const cow_ptr<Tree>& b);
/// The commit with all its ancestors.
std::string DescribeHistory(const cow_ptr<Commit>& commit);
std::string DescribeAll(const Repository& repository);

/// The branches with the ids of their heads, without reading.
std::map<std::string, std::string> HeadsOf(const Repository& repository);

/// Returns the repository as it is after a save and an exact load: every id has one instance,
/// nothing is there that no branch reaches, no blob hides a subtree.
std::unique_ptr<Repository> Rebuild(const Repository& repository);

/// True if a blob hides a subtree in a tree of the storage.
bool HidesAnyTree(const IObjectsStorage& storage);

}  // namespace TalVcs::Testing
