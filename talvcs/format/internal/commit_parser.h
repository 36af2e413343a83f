#pragma once

#include <talvcs/foundation/names.h>
#include <talvcs/objects/id.h>

namespace TalVcs {

/// The content of a commit's stream, as far as it can be read back.
struct CommitText {
  bool readable = false;
  Id treeId;
  Id parentId;
  TalStringT<WideChar> authorName;
  TalStringT<WideChar> authorEmail;
  TalStringT<WideChar> description;
  Time time;
  TimeDelta bias;
};

/// Reads a packed commit. It is readable if the header begins with "commit " and the text has a
/// tree line; what else is missing is empty or zero.
CommitText ParseCommit(StreamIO stream);

}  // namespace TalVcs
