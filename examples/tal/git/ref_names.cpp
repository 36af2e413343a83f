#include "ref_names.h"

#include "../failure.h"
#include "../terminal.h"
#include "git_names.h"

#include <kit/text/error.h>

#include <set>

namespace Tal {
namespace {

/// Replaces each "/" before which there is the whole name of another branch.
std::string WithoutBranchAsFolder(const std::string& name, const std::set<std::string>& taken) {
  std::string result;
  for (const char c : name) {
    if (c == '/' && taken.contains(result)) {
      result += "%2F";
    } else {
      result += c;
    }
  }
  return result;
}

void AddRefs(const std::vector<TalVcs::Kit::Head>& heads, const std::string& prefix,
             std::vector<GitRef>& refs) {
  std::set<std::string> taken;
  for (const TalVcs::Kit::Head& head : heads) {  // by name: "a" comes before "a/b"
    const std::string name = GitRefName(head.name);
    if (name.empty()) throw Failure(Printable(head.name) + ": the name is too long for git");
    const std::string free = WithoutBranchAsFolder(name, taken);
    taken.insert(free);
    refs.push_back({head.name, prefix + free, head.id});
  }
}

}  // namespace

std::vector<GitRef> ListGitRefs(const TalVcs::Kit::Workspace& workspace) {
  std::vector<GitRef> refs;
  AddRefs(workspace.GetBranches(), "refs/heads/", refs);
  AddRefs(workspace.GetTags(), "refs/tags/", refs);
  return refs;
}

}  // namespace Tal
