#include <kit/open/internal/errors.h>
#include <kit/open/report.h>

#include <algorithm>

namespace TalVcs::Kit {

namespace {

const char* NameOf(ObjectType type) noexcept {
  switch (type) {
    case ObjectType::Commit:
      return "commit";
    case ObjectType::Tree:
      return "folder";
    case ObjectType::Blob:
      break;
  }
  return "file";
}

}  // namespace

const char* ToString(BranchState state) noexcept {
  switch (state) {
    case BranchState::Whole:
      return "Whole";
    case BranchState::Partial:
      return "Partial";
    case BranchState::Lost:
      return "Lost";
    case BranchState::Unchecked:
      break;
  }
  return "Unchecked";
}

std::string Describe(const Damage& damage) {
  std::string line = "branch " + Quoted(damage.branch) + ": " + NameOf(damage.type) + " ";
  if (damage.type != ObjectType::Commit) {
    line += Quoted("/" + damage.path) + " of commit " + ShortId(damage.commit);
  } else {
    line += ShortId(damage.id);
  }
  return line + " can't be read: " + damage.reason;
}

const BranchReport* FindBranch(const HistoryReport& report, std::string_view name) {
  const auto found =
      std::find_if(report.branches.begin(), report.branches.end(),
                   [name](const BranchReport& branch) { return branch.name == name; });
  return found == report.branches.end() ? nullptr : &*found;
}

Error ErrorOfDamage(const HistoryReport& report) {
  const Damage& damage = report.damages.front();
  const ErrorCode code =
      damage.code == ErrorCode::Unavailable ? ErrorCode::Unavailable : ErrorCode::Damaged;
  const std::string subject = damage.path.empty() ? damage.branch : damage.path;
  Error error = MakeError(code, Describe(damage), subject);
  if (report.damageCount > 1) {
    error.cause = "and " + std::to_string(report.damageCount - 1) + " more unreadable objects";
  }
  return error;
}

}  // namespace TalVcs::Kit
