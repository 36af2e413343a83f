#pragma once

#include "session.h"

#include <string>

namespace Tal {

/// The branch that a merge reads: one that has the name, or one that is made for the merge of a
/// commit that no branch names. Nobody else sees that one: `Remove` it before the session saves.
class MergeHead {
 public:
  /// No branch.
  explicit MergeHead(Session& session) : m_session(session) {}
  /// Finds the branch, or the commit. Throws `Failure`.
  MergeHead(Session& session, const std::string& revision);

  const std::string& Branch() const noexcept { return m_branch; }
  void Remove();

 private:
  Session& m_session;
  std::string m_branch;
  bool m_isTemporary = false;
};

}  // namespace Tal
