#include <kit/text.h>
#include <kit/workspace/merge_preview.h>
#include <kit/workspace/version.h>

#include <ostream>

namespace TalVcs::Kit {

std::ostream& Print(std::ostream& out, const Id& id) { return out << ToUtf8(id.View()); }

const char* ToString(ConflictKind kind) noexcept {
  switch (kind) {
    case ConflictKind::BothChanged:
      return "BothChanged";
    case ConflictKind::BothAdded:
      return "BothAdded";
    case ConflictKind::ChangedAndRemoved:
      return "ChangedAndRemoved";
    case ConflictKind::FileAgainstFolder:
      break;
  }
  return "FileAgainstFolder";
}

}  // namespace TalVcs::Kit
