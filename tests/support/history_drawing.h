#pragma once

#include <talvcs/repository/repository.h>

#include <cstddef>
#include <map>
#include <string>
#include <string_view>

namespace TalVcs::Testing {

/// The commits of a drawing, by name. Its handles keep the commits in use during a purge.
using History = std::map<std::string, cow_ptr<Commit>>;

/// Stores the history that `drawing` shows and returns its commits.
///
/// A drawing such as "A-B-C; B-D" is a list of chains, oldest commit first. A chain that begins
/// with a known name goes on from that commit, and one that begins with a new name starts a history
/// of its own. Every other name of a chain is new. Names of `known` count as drawn before.
///
/// The commit of a name is the same in every repository, as far as its ancestors are: the name is
/// its description, all times are equal, and its tree holds the blob "name" with the name and the
/// blob "lib/common" that is the same everywhere.
History DrawHistory(IRepository& repository, std::string_view drawing, History known = {});

/// Makes the commit `name` as a drawing does, without storing it. Its tree is stored.
cow_ptr<Commit> MakeCommit(IRepository& repository, std::string_view name,
                           cow_ptr<Commit> parent = nullptr);

/// Puts branches on commits: "master=C topic=D". One that is missing is created; "empty=" is one
/// without a head, which must be missing.
void PlaceBranches(IRepository& repository, const History& history, std::string_view branches);

/// Returns the descriptions from the root to `tip`, "A-B-D", with "_" for an empty one; "" for a
/// null tip.
std::string ChainOf(const cow_ptr<Commit>& tip);

/// Returns the head's chain of a branch.
std::string ChainOf(const IRepository& repository, std::string_view branch);

/// Returns the text of the id of the last commit of a chain, "A-B-D", as any repository
/// has it, without storing anything.
std::string IdOfChain(std::string_view chain);

/// Stores `count` commits in a row on top of `parent`, all with the tree of `MakeCommit("chain")`,
/// and returns the last. Their descriptions are the numbers from `first` on.
cow_ptr<Commit> GrowChain(IRepository& repository, cow_ptr<Commit> parent, std::size_t count,
                          std::size_t first = 0);

}  // namespace TalVcs::Testing
