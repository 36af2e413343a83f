#include "merge_head.h"

#include "history.h"

namespace Tal {

MergeHead::MergeHead(Session& session, const std::string& revision) : m_session(session) {
  Kit::Workspace& document = session.Document();
  for (const Kit::Head& branch : document.GetBranches()) {
    if (branch.name == revision) m_branch = revision;
  }
  if (!m_branch.empty()) return;
  const Kit::Version version = session.Find(revision);
  m_branch = "merged " + IdOf(version);
  m_isTemporary = static_cast<bool>(document.CreateBranch(m_branch, version.id));
}

void MergeHead::Remove() {
  if (m_isTemporary) m_session.Document().RemoveBranch(m_branch).value();
}

}  // namespace Tal
