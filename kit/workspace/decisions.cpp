#include <kit/open/try.h>
#include <kit/text.h>
#include <kit/text/times.h>
#include <kit/workspace/decisions.h>
#include <talvcs/foundation/helpers.h>
#include <talvcs/merge/resolvers.h>

namespace TalVcs::Kit {

namespace {

enum class Entry { Nothing, File, Folder };

Entry EntryOf(const ConflictSide& side) {
  if (side.content) return Entry::File;
  return side.isFolder ? Entry::Folder : Entry::Nothing;
}

std::optional<Time> ReadTime(const cow_ptr<Blob>& blob) {
  const std::optional<std::chrono::sys_seconds> time = ParseTime(BytesFromBlob(*blob));
  if (!time) return std::nullopt;
  return Time::FromTimeT(time->time_since_epoch().count());
}

}  // namespace

std::string Describe(const Conflict& conflict) {
  const Entry base = EntryOf(conflict.base);
  const auto word = [&](Entry entry) -> std::string {
    if (entry == Entry::Folder) return base == Entry::Folder ? "changed folder" : "folder";
    if (entry == Entry::Nothing) return "removed";
    return base == Entry::File ? "changed" : "added";
  };
  const std::string ours = word(EntryOf(conflict.ours));
  const std::string theirs = word(EntryOf(conflict.theirs));
  return ours == theirs ? ours + " on both sides" : ours + " here, " + theirs + " there";
}

const char* ToString(Decision::Side side) noexcept {
  switch (side) {
    case Decision::Side::Ours:
      return "ours";
    case Decision::Side::Theirs:
      return "theirs";
    case Decision::Side::Base:
      return "base";
    case Decision::Side::Content:
      break;
  }
  return "edited";
}

Result<std::optional<Decision>> DecideByTime(const Conflict& conflict, const Snapshot& ours,
                                             const Snapshot& theirs, std::string_view timePath) {
  return Try([&]() -> Result<std::optional<Decision>> {
    const ConflictResolver resolver = TimeBasedConflictResolver({ToWide(timePath)}, &ReadTime);
    const WideString path = ToWide(conflict.path);
    const MergeTrees trees{ours.GetTree(), nullptr, theirs.GetTree()};
    switch (resolver(Helpers::SplitVcsPath(path), trees)) {
      case ConflictChoice::Left:
        return std::optional(Decision::Ours());
      case ConflictChoice::Right:
        return std::optional(Decision::Theirs());
      case ConflictChoice::Root:
      case ConflictChoice::Undecided:
        break;
    }
    return std::optional<Decision>();
  });
}

Decisions KeepBothSides(const MergePreview& preview, Decisions decisions) {
  for (const Conflict& conflict : preview.conflicts) {
    const bool is_text = conflict.merged && conflict.ours.content && conflict.theirs.content;
    const bool is_ours = EntryOf(conflict.ours) != Entry::Nothing;
    decisions.emplace(conflict.path, is_text   ? Decision::Content(*conflict.merged)
                                     : is_ours ? Decision::Ours()
                                               : Decision::Theirs());
  }
  return decisions;
}

}  // namespace TalVcs::Kit
