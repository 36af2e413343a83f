#pragma once

#include <kit/open/internal/reporter.h>
#include <kit/text/result.h>
#include <talvcs/objects/commit.h>
#include <talvcs/objects/id.h>

#include <vector>

namespace TalVcs {
class IRepository;
}  // namespace TalVcs

namespace TalVcs::Kit {

/// Returns the newest versions that both histories contain, of which none contains another where
/// clocks are right. A history contains the parents of its versions and what these have merged.
/// Fails with `Cancelled`; the items of the reporter are versions. Cost: the versions since the
/// oldest of the result.
Result<std::vector<cow_ptr<Commit>>> FindMergeBases(const IRepository& repository,
                                                    const cow_ptr<Commit>& first,
                                                    const cow_ptr<Commit>& second,
                                                    Reporter& reporter);

/// Returns true if `ancestor` is the commit itself, its parent, that one's parent and so on.
bool IsInLine(const cow_ptr<Commit>& commit, const Id& ancestor);

}  // namespace TalVcs::Kit
