#pragma once

#include <talvcs/objects/commit.h>
#include <talvcs/objects/id.h>

#include <vector>

namespace TalVcs {
class IRepository;
}  // namespace TalVcs

namespace TalVcs::Kit {

/// Returns the newest versions that both histories contain, of which none contains another where
/// clocks are right. A history contains the parents of its versions and what these have merged.
/// Cost: the versions since the oldest of the result.
std::vector<cow_ptr<Commit>> FindMergeBases(const IRepository& repository,
                                            const cow_ptr<Commit>& first,
                                            const cow_ptr<Commit>& second);

/// Returns true if `ancestor` is the commit itself, its parent, that one's parent and so on.
bool IsInLine(const cow_ptr<Commit>& commit, const Id& ancestor);

}  // namespace TalVcs::Kit
