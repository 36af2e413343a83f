#pragma once

#include <kit/workspace/workspace.h>

#include <string>
#include <vector>

namespace Tal {

/// A branch or tag with its name in git.
struct GitRef {
  std::string name;  ///< Its name here.
  std::string ref;   ///< Its full name in git, such as "refs/heads/master".
  TalVcs::Id head;
};

/// Returns the branches and tags of a workspace with the names for git, branches first.
///
/// Git can't hold both "a" and "a/b": the second becomes "a%2Fb". Throws `Failure` if a name
/// is too long for git.
std::vector<GitRef> ListGitRefs(const TalVcs::Kit::Workspace& workspace);

}  // namespace Tal
